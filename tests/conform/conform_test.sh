#!/usr/bin/env bash
# Runs kybridge-conform on an SDK and looks at what it finds.
#
#   conform_test.sh PROGRAM holds SDK [OPTION...]                   nothing
#   conform_test.sh PROGRAM broken SDK SOURCE [CHECK=LIBRARY...]    each fault of the source, and each of the libraries,
#                                                                   by the check that it is named after, and no other
#   conform_test.sh PROGRAM command_line SDK
set -euo pipefail
program=$1 kind=$2 sdk=$3
shift 3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

fail()
{
    printf '%s\n' "$*"
    failed=1
}

# run STATUS ARGUMENT...: standard output and error go to $work/out.
run()
{
    local expected=$1 status=0
    shift
    "$program" "$@" >"$work/out" 2>&1 </dev/null || status=$?
    [ $status -eq "$expected" ] || {
        fail "kybridge-conform $*: exit status $status, expected $expected. It said:"
        cat "$work/out"
    }
}

# says TEXT...: each is in a line of what came out.
says()
{
    for text; do
        grep -qF -e "$text" "$work/out" || fail "not said: $text"
    done
}

# finds CHECK ARGUMENT...: this check alone fails.
finds()
{
    local check=$1 found
    shift
    run 1 --seconds 1 --time-limit 2 --tap - "$@"
    found=$(sed -n 's/^not ok [0-9]* - //p' "$work/out")
    [ "$found" = "$check" ] || fail "BROKEN=${BROKEN-}: found by '${found//$'\n'/ }', expected '$check' alone"
}

case $kind in
holds)
    run 0 --seconds 2 "$sdk" "$@"
    says ' 0 do not'
    ;;
broken)
    source=$1
    shift
    mapfile -t faults < <(grep -o 'broken("[^"]*")' "$source" | cut -d'"' -f2 | sort -u)
    [ ${#faults[@]} -ge 30 ] || fail "${#faults[@]} faults, expected 30 or more"
    for fault in "${faults[@]}"; do
        BROKEN=$fault finds "${fault%%:*}" "$sdk"
    done
    for library; do
        finds "${library%%=*}" "${library#*=}"
    done
    # No check goes unproven. Only a module that is broken itself does not load.
    "$program" --list | cut -d' ' -f1 | grep -vx module.load >"$work/checks"
    printf '%s\n' "${faults[@]%%:*}" "${@%%=*}" | sort -u | diff -u <(sort "$work/checks") - || fail "checks without a fault"
    # How a service ends a check is told.
    BROKEN=log.severities finds log.severities "$sdk" --only log.severities
    says 'ky_log(63' 'signal 6' 'it crashes'
    BROKEN=log.formats finds log.formats "$sdk" --only log.formats
    says 'exit status 3'
    BROKEN=stp.state:hangs finds stp.state "$sdk" --only stp.state
    says 'nothing yet after 2 seconds'
    BROKEN=port.swid:32-bits finds port.swid "$sdk" --only port.swid
    says 'behind the end of the record'
    ;;
command_line)
    run 2
    says 'no SDK given'
    run 2 "$work/missing.so"
    says missing.so
    run 2 "$0"
    says 'invalid ELF header'
    run 2 --setup no_such_function "$sdk"
    says no_such_function
    run 2 --module "$work/missing.so.1" "$sdk"
    says missing.so.1
    run 2 --module "$sdk" "$sdk"
    says 'has no ky_bridge_init'
    run 2 --only no.such.check "$sdk"
    says no.such.check
    run 2 --ports 0x10001 "$sdk"
    says 'expected 2 or more'
    run 2 --ports 0x10001,0x10001 "$sdk"
    says '0x10001 is given twice'
    # The number of ports is the user's, and one that does not exist is found.
    run 0 --only vlan.leave-two --ports 0x10002,65540 --junit "$work/junit.xml" "$sdk"
    grep -q '<testcase classname="vlan" name="vlan.leave-two"' "$work/junit.xml" || fail "JUnit lacks a check"
    run 1 --only port.swid --swid 3 --junit "$work/junit.xml" "$sdk"
    says '0, SWID 0' '0, SWID 3'
    grep -q 'testsuite .*failures="1"' "$work/junit.xml" || fail "JUnit does not count a failure"
    run 2 --only port.swid --tap "$work/no/such/folder" "$sdk"
    says no/such/folder
    ;;
esac
exit $failed

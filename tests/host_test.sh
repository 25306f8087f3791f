#!/bin/sh
# Runs kybridge-host from the top of the source tree and looks at what comes out.
#
#   host_test.sh HOST script FILE     expected/NAME.txt beside the script is what comes out. The script says in comment
#                                     lines what is not as usual:
#                                         # exit STATUS          else 0
#                                         # options OPTION...
#                                     With EXPECT=write the expected output is written anew; see tools/expect.
#   host_test.sh HOST document FILE      the document shows the calls of tests/scripts/order-of-calls.kyb as they come out
#   host_test.sh HOST command_line OTHER_LIBRARY
set -u
host=$1
kind=$2
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

# run STATUS ARGUMENT...: standard output and error go to $work/out.
run()
{
    expected=$1
    shift
    "$host" "$@" >"$work/out" 2>&1 </dev/null
    status=$?
    [ "$status" -eq "$expected" ] && return
    echo "kybridge-host $*: exit status $status, expected $expected. It said:"
    cat "$work/out"
    exit 1
}

# says TEXT: the text is in a line of $work/out; the lines up to it are then done with.
says()
{
    found=$(grep -nF -m 1 -e "$1" "$work/out" | cut -d: -f1)
    if [ -z "$found" ]; then
        echo "not said, or not in this order: $1. What was left:"
        cat "$work/out"
        exit 1
    fi
    sed -i "1,${found}d" "$work/out"
}

case $kind in
script)
    expected_file=$(dirname "$3")/expected/$(basename "$3" .kyb).txt
    # shellcheck disable=SC2046 # options are words
    run "$(sed -n 's/^# exit //p' "$3" | grep . || echo 0)" --log - $(sed -n 's/^# options //p' "$3") "$3"
    if [ "${EXPECT-}" = write ]; then
        cp "$work/out" "$expected_file"
    elif ! diff -u "$expected_file" "$work/out"; then
        echo "if this is as it should be, tools/expect $3 writes it down"
        exit 1
    fi
    ;;
document)
    run 0 --verbosity 0 --trace tests/scripts/order-of-calls.kyb
    grep -E '^(> | *SDK )' "$work/out" | sed 's/^\( *\)SDK /\1    /' >"$work/calls"
    sed -n '/^## The order of calls/,/^## [^T]/p' "$3" | sed -n '/^```text/,/^```/p' | grep -v '^```' |
        diff -u - "$work/calls" || { echo "$3 shows other calls"; exit 1; }
    ;;
command_line)
    # Help gives an example of every command, and each of them is a right line.
    run 0 --help
    sed -n 's/^ *example:  //p' "$work/out" >"$work/examples.kyb"
    [ "$(wc -l <"$work/examples.kyb")" -gt 40 ] || { echo "help lacks examples"; exit 1; }
    run 0 --check "$work/examples.kyb"

    run 2 --no-such-option
    says --no-such-option
    run 2 "$work/missing.kyb"
    says "missing.kyb: No such file"
    run 2 "$work"
    says "is a directory"
    run 2 --module "$work/missing.so"
    says "the module cannot be loaded: $work/missing.so"
    run 2 --module "$3"
    says "does not export ky_bridge_init"
    run 2 --check --attach north examples/two-tenants.kyb
    says "'north': expected PORT=INTERFACE"
    run 2 --control "$work/socket" examples/two-tenants.kyb
    says "--control requires --attach or --ptf"

    printf 'start\nshow vports 9\n' >"$work/none.kyb"
    run 1 "$work/none.kyb"
    says "there is no bridge 9"

    # Without a file, standard input is the script; the log can have a file of its own.
    printf 'start\nbogus\n' | "$host" --log "$work/log" >"$work/out" 2>&1
    [ $? -eq 2 ] || { echo "a wrong line on standard input is no error"; exit 1; }
    says "standard input:2: unknown command 'bogus'"
    grep -q "BRIDGE notice: SDK initiates in 802.1D mode" "$work/log" || { echo "no log was written"; exit 1; }

    # Output that cannot be written is no success.
    run 2 --log /dev/full examples/two-tenants.kyb
    says "/dev/full: No space left on device"
    "$host" --log "$work/log" examples/two-tenants.kyb >/dev/full 2>"$work/out" </dev/null
    [ $? -eq 2 ] || { echo "output was lost and nobody said so"; exit 1; }
    says "standard output: No space left on device"

    # A person at a terminal.
    python3 tests/host/prompt_test.py "$host" "$work" || exit 1

    # A run that does not do what was expected stops there, or goes on when told to.
    printf 'start\nbridge destroy 7\nsay still here\n' >"$work/refused.kyb"
    run 1 "$work/refused.kyb"
    grep -q "still here" "$work/out" && { echo "it went on"; exit 1; }
    run 1 --keep-going --verbosity 0 "$work/refused.kyb"
    says "refused.kyb:2: bridge destroy 7"
    says "answered 21 ENTRY_NOT_FOUND, expected 0 SUCCESS"
    says "still here"
    ;;
*)
    echo "unknown kind of test: $kind"
    exit 1
    ;;
esac

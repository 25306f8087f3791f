#!/bin/sh
# Runs kybridge-host from the top of the source tree and looks at what comes out.
#
#   host_test.sh HOST example FILE    the output is examples/expected/NAME.txt, the exit status 0
#   host_test.sh HOST script FILE     the file itself says what it expects, in comment lines at its top:
#                                         # exit STATUS
#                                         # says TEXT      part of a line that comes out, after the one before
#   host_test.sh HOST command_line OTHER_LIBRARY MODULE
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
example)
    run 0 --log - "$3"
    diff -u "examples/expected/$(basename "$3" .kyb).txt" "$work/out"
    ;;
script)
    run "$(sed -n 's/^# exit //p' "$3")" --log - "$3"
    sed -n 's/^# says //p' "$3" >"$work/says"
    [ -s "$work/says" ] || { echo "$3 expects nothing to be said"; exit 1; }
    while IFS= read -r text; do says "$text"; done <"$work/says"
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

    # Without a file, standard input is the script; the log can have a file of its own.
    printf 'start\nbogus\n' | "$host" --log "$work/log" >"$work/out" 2>&1
    [ $? -eq 2 ] || { echo "a wrong line on standard input is no error"; exit 1; }
    says "standard input:2: unknown command 'bogus'"
    grep -q "BRIDGE notice: SDK initiates in 802.1D mode" "$work/log" || { echo "no log was written"; exit 1; }

    # Screens for other programs: a JSON object in each line that begins with a brace.
    printf 'start\nport announce 0x10001 as north\nbridge create as red\nvport add red north vlan 100 tagged\nshow vports\nshow rules\n' \
        >"$work/screens.kyb"
    run 0 --json --log "$work/log" "$work/screens.kyb"
    sed -n '/^{/p' "$work/out" | python3 -c '
import json, sys
vports, rules = map(json.loads, sys.stdin)
assert vports == {"title": "virtual ports", "rows": [
    {"BRIDGE": "red", "PORT": "north", "VLAN": "100", "EGRESS": "tagged", "INTERNAL VLAN": "1"}]}, vports
assert "note" in rules and [row["NEW VLAN"] for row in rules["rows"]] == ["1", "100"], rules
' || exit 1

    # Output that cannot be written is no success.
    run 2 --log /dev/full "$work/screens.kyb"
    says "/dev/full: No space left on device"
    "$host" --log "$work/log" "$work/screens.kyb" >/dev/full 2>"$work/out" </dev/null
    [ $? -eq 2 ] || { echo "output was lost and nobody said so"; exit 1; }
    says "standard output: No space left on device"

    # The doctor, on the module and on what is none; a person at a terminal.
    run 0 --doctor "$4"
    says "supplies acl_bind_port, "
    says "right  it loads"
    run 1 --doctor "$3"
    says "WRONG  its soname is"
    says "WRONG  it does not export ky_bridge_init, "
    says "so it was not loaded"
    run 1 --doctor "$0"
    says "no ELF shared object"
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

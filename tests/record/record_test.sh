#!/bin/sh
# Records processes that know nothing of it, kills them, and reads, plays back and goes on from what is left.
#
#   record_test.sh KIND RECORD HOST MODULE PROCESS...
set -u
kind=$1 record=$2 host=$3 module=$4
shift 4
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
file=$work/recording

fail()
{
    echo "$*. What was said:"
    cat "$work/out"
    exit 1
}

# run STATUS COMMAND...: its output goes to $work/out.
run()
{
    expected=$1
    shift
    "$@" >"$work/out" 2>&1 </dev/null
    status=$?
    [ "$status" -eq "$expected" ] || fail "$*: exit status $status, expected $expected"
}

says()
{
    grep -qF -e "$1" "$work/out" || fail "not said: $1"
}

case $kind in
played_back)
    for process; do
        # What the process gets does not change, its exit status is handed on, and it is played back identically.
        run 7 "$process" "$module" 50 1
        mv "$work/out" "$work/alone"
        run 7 "$record" run -o "$file" -- "$process" "$module" 50 1
        cmp "$work/alone" "$work/out" || fail "$process says something else when it is recorded"
        run 0 "$record" check --module "$module" "$file"
        says "calls played, no difference"
        run 0 "$record" show "$file"
        [ "$(grep -c 'ky_bridge_port_set cmd ADD' "$work/out")" -eq 50 ] || fail "not every call is shown"
        says "acl_rules_set SET region 1 offset 1: port 0x00010001 vlan 103 -> vlan 1, don't learn"

        # Recording takes no system call and no memory while calls run.
        "$process" "$module" 20000 0 >"$work/out" 2>&1
        status=$?
        if [ $status -eq 7 ]; then
            run 7 "$record" run -o "$work/sealed" -- "$process" "$module" 20000 0
            run 0 "$record" check --module "$module" "$work/sealed"
            says "60003 calls played, no difference"
        elif [ $status -ne 159 ]; then # SIGSYS: to read the clock is a system call on this machine
            fail "$process, sealed: exit status $status"
        fi

        # The host goes on from there, in the second round, and so does the script.
        printf 'bridge create as red\nvport add red 0x10001 vlan 300 tagged\nverify\nexplain 0x10001 300\n' >"$work/on.kyb"
        run 0 "$host" --recording "$file" --until 10 "$work/on.kyb"
        says "database and hardware agree"
        says "virtual port 0x00010001 VLAN 300, tagged"
        "$record" script --until 10 "$file" >"$work/same.kyb" || fail "no script"
        run 0 "$host" "$work/same.kyb" "$work/on.kyb"
        says "database and hardware agree"

        # A module that does anything else is found out.
        sed 's/SDK initiates in/SDK initiateS in/' "$module" >"$work/other.so"
        run 1 "$record" check --module "$work/other.so" "$file"
        says "now:      BRIDGE notice: SDK initiateS in 802.1D mode"

        # Two threads inside at once are told.
        run 7 "$record" run -o "$file" -- "$process" "$module" 4 2
        run 0 "$record" show "$file"
        says "thread 2, while another was inside"
    done
    ;;
killed)
    # At a hundred moments, all over the process's life: what it saw return is there, and at most one call more.
    for moment in $(seq 100); do
        rm -f "$file"
        : >"$work/returned" # it may be killed before it makes its own
        KYBRIDGE_RECORD=$file KYBRIDGE_RECORD_LIMIT=8 LD_PRELOAD=$(dirname "$record")/libkyrecord.so.1 \
            "$1" "$module" 0 1 >"$work/returned" &
        process=$!
        sleep "0.0$((moment % 10))$(((moment * 7) % 10))"
        kill -KILL $process
        wait $process 2>/dev/null
        returned=$(wc -c <"$work/returned")
        [ "$returned" -gt 0 ] || continue # its recording may not even have begun
        run 0 "$record" check --module "$module" "$file"
        played=$(sed -n 's/ calls played, no difference//p' "$work/out")
        [ "$played" -ge "$returned" ] && [ "$played" -le $((returned + 1)) ] || grep -q 'stopped at its limit' "$work/out" ||
            fail "$played calls can be played, but $returned returned"
        most=$([ "$played" -gt "${most:-0}" ] && echo "$played" || echo "${most:-0}")
    done
    [ "${most:-0}" -gt 100 ] || fail "no process lived long enough to be killed in its work"
    ;;
wrong)
    # At the limit recording stops, and the process does not notice; a full disk or a wrong name does not matter to it.
    run 7 "$record" run -o "$file" --limit 1 -- "$1" "$module" 3000 1
    says "the recording stopped at its limit of 1 MB"
    run 0 "$record" check --module "$module" "$file"
    says "no difference"
    run 7 "$record" run -o "$work/no/such/folder" -- "$1" "$module" 3 1
    says "cannot be created: No such file or directory"
    says "nothing was recorded"
    run 127 "$record" run -o "$file" -- "$work/no-such-command"
    run 137 sh -c "'$record' run -o '$file' -- sh -c 'kill -KILL \$\$'"

    # A recording is never overwritten by another process.
    run 7 "$record" run -o "$file" -- sh -c "'$1' '$module' 3 1; '$1' '$module' 5 1"
    run 0 "$record" check --module "$module" "$file.1"

    # Damage is told, and what stands before it is read.
    printf '\377\377\377' | dd of="$file.1" bs=1 seek=5000 conv=notrunc 2>/dev/null
    run 1 "$record" show "$file.1"
    says "damaged: after byte"
    says "ky_bridge_init mode 802.1D"
    printf '\011' | dd of="$file" bs=1 seek=8 conv=notrunc 2>/dev/null
    run 1 "$record" show "$file"
    says "it is a recording of version 9, and this program reads version 1"
    says "ky_bridge_init mode 802.1D"
    run 2 "$record" show "$0"
    says "it is no recording"
    ;;
gdb)
    # The database of a process without a recording, while it runs and in its core.
    command -v gdb >/dev/null || exit 77
    commands=$(dirname "$0")/../../record/gdb/kybridge-gdb.py
    mkfifo "$work/commands"
    "$host" <"$work/commands" >"$work/host.out" 2>&1 &
    process=$!
    exec 7>"$work/commands"
    cat >&7 <<END
start
port announce 0x10001
bridge create as red
vport add red 0x10001 vlan 100 untagged
say ready
END
    for tenth in $(seq 100); do grep -q ready "$work/host.out" && break; sleep 0.1; done
    gdb -q -batch -nx -p $process -x "$commands" -ex "generate-core-file $work/core" -ex "kybridge bridges" \
        -ex "kybridge ports" -ex "kybridge check" -ex "set var bridge_db->bridge_map.map.count = 0" \
        -ex "kybridge check" >"$work/out" 2>&1
    kill -KILL $process
    exec 7>&-
    grep -q "ptrace: Operation not permitted" "$work/out" && exit 77
    says "1       1     1       1            1"
    says "0x00010001  0     1       1         1:1 100:1"
    says "the database agrees with itself"
    says "the map of bridge_db_bridge_t is damaged"
    run 0 gdb -q -batch -nx "$host" "$work/core" -x "$commands" -ex "kybridge vports" -ex "kybridge check"
    says "1       0x00010001  100   untagged  1             1"
    says "the database agrees with itself"
    ;;
*)
    echo "unknown kind of test: $kind"
    exit 1
    ;;
esac

#!/bin/sh
# Two hosts ping each other through the switch: each of the three in a network namespace of its own, which ends
# with this script. Needs root.
#
#   live-ping.sh [KYBRIDGE-HOST]      the program; without it, the one that tools/demo has built, or the installed one
set -eu
examples=$(dirname "$0")
program=$examples/../build/host/kybridge-host
[ -x "$program" ] || program=kybridge-host
program=${1:-$program}
id=kybridge-$$
output=$(mktemp)
switch=

clean_up()
{
    [ -z "$switch" ] || kill "$switch" 2>/dev/null || true
    for place in switch left right; do
        ip netns del "$id-$place" 2>/dev/null || true
    done
    rm -f "$output"
}
trap clean_up EXIT

for place in switch left right; do
    ip netns add "$id-$place"
done
number=1
for side in left right; do
    ip -n "$id-switch" link add "$side" type veth peer name eth0 netns "$id-$side"
    ip -n "$id-switch" link set "$side" up
    ip -n "$id-$side" link set eth0 up
    ip -n "$id-$side" addr add "10.0.0.$number/24" dev eth0
    number=2
done

ip netns exec "$id-switch" "$program" --attach left=left --attach right=right "$examples/live-ping.kyb" \
    </dev/null >"$output" &
switch=$!
until grep -q '^forwarding between' "$output"; do
    kill -0 "$switch" # as long as it lives
    sleep 0.1
done

ip netns exec "$id-left" ping -c 3 -i 0.2 -W 2 10.0.0.2

kill "$switch"
wait "$switch"
switch=
cat "$output"

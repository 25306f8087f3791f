#!/usr/bin/env bash
# probes.sh LIBRARY: tracers find the probe of refusals, with two arguments, in a place that is one empty instruction.
set -euo pipefail
export LC_ALL=C
library=$1
note=$(readelf -nW "$library" | grep -A 3 'Provider: kybridge')
[ "$(grep -E 'Name|Arguments' <<<"$note" | grep -cE 'Name: refusal$|Arguments: -?[0-9]+@[^ ]+ -4@[^ ]+')" -eq 2 ] || {
    echo "not the expected notes:"
    echo "$note"
    exit 1
}
place=$(sed -n 's/.*Location: 0x\([0-9a-f]*\),.*/\1/p' <<<"$note")
code=$(objdump -d --no-show-raw-insn --start-address="0x$place" --stop-address=$((0x$place + 1)) "$library" | tail -1)
[[ $code =~ nop ]] || {
    echo "the probe is no empty instruction, but: $code"
    exit 1
}

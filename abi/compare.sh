#!/usr/bin/env bash
# compare.sh LIBRARY: the binary interface is the recorded one. Any change fails, an addition too.
set -uo pipefail
library=$1
recorded=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
command -v abidiff >/dev/null || {
    echo "skipped: abidiff comes with Debian's package abigail-tools"
    exit 77
}
now=$(mktemp -d)
trap 'rm -rf "$now"' EXIT
describe=$recorded/describe.sh
if readelf -h "$library" | grep -q ELF32; then recorded=$recorded/32-bit; fi

"$describe" "$library" "$now" || exit 1
grep -q "function-decl name='ky_bridge_init'" "$now/libkybridge.so.1.abi" || {
    echo "$library has no debug information"
    exit 1
}

# Processors of one word size differ in a type of the compiler that no record has.
printf '[suppress_type]\nname = max_align_t\n' >"$now/suppressions"
failed=0
abidiff --harmless --no-architecture "$recorded/libkybridge.so.1.abi" "$now/libkybridge.so.1.abi" || failed=1
# Nothing that a service is called with leads to the numbers of an enumeration.
abidiff --harmless --no-architecture --suppressions "$now/suppressions" --non-reachable-types "$recorded/services.abi" "$now/services.abi" || failed=1
[ $failed = 0 ] || echo "The binary interface changed. If that is meant, tools/abi-record records it."
exit $failed

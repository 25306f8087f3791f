#!/usr/bin/env bash
# dependencies.sh LIBRARY STAND-IN SERVICES: the library needs complib, libc and the listed
# services of its process, all of them and nothing else; the stand-in supplies them.
set -euo pipefail
export LC_ALL=C
library=$1 stand_in=$2 services=$3

failed=0
# expect WHAT EXPECTED ACTUAL: both are lists with one entry a line.
expect()
{
    diff -u --label "expected: $1" --label "found: $1" <(sort <<<"$2") <(sort <<<"$3") || failed=1
}

symbols() # of nm's output, without their versions
{
    awk '{ sub(/@.*/, "", $NF); print $NF }' | sort -u
}

dynamic=$(readelf -d "$library")
expect "needed libraries" $'libc.so.6\nlibosmcomp.so.5' "$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic")"
expect "soname" "libkybridge.so.1" "$(sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p' <<<"$dynamic")"
# One entry, that of the compiler's own start-up file: no static constructor.
expect "bytes of constructors" 8 "$(awk '/\(INIT_ARRAYSZ\)/ { print $3 }' <<<"$dynamic")"

# The weak ones of the compiler's start-up files may stay unresolved.
undefined=$(nm -D --undefined-only "$library" | symbols |
    grep -vxE '__gmon_start__|_ITM_(de)?registerTMCloneTable|__cxa_finalize')
supplied=$(ldd "$library" | awk '/=> .*(libc\.so\.6|libosmcomp\.so\.5)/ { print $3 }' |
    xargs nm -D --defined-only | awk 'NF > 1' | symbols)
[ -n "$supplied" ]
expect "symbols that the process must supply" "$(cat "$services")" \
    "$(comm -23 <(echo "$undefined") <(echo "$supplied"))"

expect "services that the stand-in lacks" "" \
    "$(comm -23 <(sort "$services") <(nm -D --defined-only "$stand_in" | symbols))"
exit $failed

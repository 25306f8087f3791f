#!/usr/bin/env bash
# hardening.sh FILE...: each file, a library or the program, was built with what makes an attack on a fault harder.
set -euo pipefail
export LC_ALL=C
failed=0
# expect FILE WHAT PATTERN TEXT: the pattern is in the text; with a ! before WHAT, it is not.
expect()
{
    local found=yes
    grep -qE "$3" <<<"$4" || found=no
    if [ "${2:0:1}" = "!" ]; then [ $found = no ]; else [ $found = yes ]; fi || {
        echo "$1: expected ${2/\!/no }"
        failed=1
    }
}

for file; do
    segments=$(readelf -hlW "$file")
    dynamic=$(readelf -dW "$file")
    symbols=$(nm -D --undefined-only "$file")
    expect "$file" "relocated data read-only (RELRO)" 'GNU_RELRO' "$segments"
    expect "$file" "every symbol bound at the start (BIND_NOW)" 'BIND_NOW|FLAGS_1.*NOW' "$dynamic"
    expect "$file" "any place in memory (PIC, PIE)" 'Type: +DYN' "$segments"
    expect "$file" "!executable stack" 'GNU_STACK.*RWE' "$segments"
    expect "$file" "!relocations in code" 'TEXTREL' "$dynamic"
    expect "$file" "canaries on the stack" '__stack_chk_fail' "$symbols"
    case $segments in
    *X86-64*)
        expect "$file" "the mark of a shadow stack" 'SHSTK' "$(readelf -nW "$file")"
        expect "$file" "marks for indirect jumps" 'endbr64' "$("${OBJDUMP:-objdump}" -d --no-show-raw-insn "$file")"
        ;;
    *AArch64*) expect "$file" "marks for indirect jumps" '\b(bti|paciasp)\b' "$("${OBJDUMP:-objdump}" -d --no-show-raw-insn "$file")" ;;
    esac
done
# The library hands no buffer to libc, so only the others have functions of libc that check sizes.
expect "the stand-in or the host" "libc's checks of sizes" '__[a-z]+_chk' "$(nm -D --undefined-only "${@:2}")"
exit $failed

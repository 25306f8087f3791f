#!/usr/bin/env bash
# describe.sh LIBRARY DIR: writes the binary interface into a directory, as libabigail's abidw sees it.
#
#   libkybridge.so.1.abi   what the library exports: every symbol with its version, every signature
#   services.abi           what the public headers fix: every record, every number, every service's signature
#
# The library must bring debug information of gcc: clang's reads differently. CC is the gcc that built it, where that is
# one for another processor.
set -euo pipefail
export LC_ALL=C
library=$1 into=$2
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# describe FILE ABIDW-ARGUMENT...: without line numbers and places, which change with every comment.
describe()
{
    local file=$1
    shift
    abidw --headers-dir "$top/include/kybridge" --no-show-locs --no-comp-dir-path --no-corpus-path --no-elf-needed \
        --type-id-style hash "$@" | sed "s|path='$top/|path='|" >"$into/$file"
}

# The records behind bridge_db are the module's own and may change.
describe libkybridge.so.1.abi --drop-private-types --exported-interfaces-only --drop-undefined-syms "$library"

# The library only calls the services, so they are put into a file that does nothing but name them. It is
# freestanding, to keep libc's types out.
{
    echo '#include <kybridge/ky_bridge.h>'
    sed 's/.*/__typeof__(\&&) service_&;/' "$top/tests/checks/services.txt"
} >"$work/services.c"
(cd "$work" && "${CC:-gcc}" -std=gnu11 -ffreestanding -g -fno-eliminate-unused-debug-types -fPIC -shared -nostdlib \
    -I"$top/include" services.c -o services.so)
describe services.abi --load-all-types "$work/services.so"

#!/usr/bin/env bash
# exported_symbols.sh LIBRARY [LIST]: the library exports what the list says, each symbol with its version, no more
# and no less. Without a list, prints what it exports.
set -euo pipefail
export LC_ALL=C
library=$1 list=${2-}

# An absolute symbol (A) is a version's own name.
exported=$(nm -D --defined-only "$library" | awk '$2 != "A" { print $3 }' | sort)
if [ -z "$list" ]; then
    echo "$exported"
    exit
fi

diff -u --label "$list" --label "exported by $library" "$list" - <<<"$exported" || {
    echo "A symbol came (+) or went (-). If that is meant, tools/abi-record records it."
    exit 1
}

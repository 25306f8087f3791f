#!/usr/bin/env bash
# exported_symbols.sh LIBRARY LIST: the library exports what the list says, no more and no less.
set -euo pipefail
export LC_ALL=C
library=$1 list=$2

# An absolute symbol (A) is a version's own name.
sort -c -u "$list"
diff -u --label "$list" --label "exported by $library" \
    "$list" <(nm -D --defined-only "$library" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort) || {
    echo "A symbol came (+) or went (-). If that is meant, change $list with it."
    exit 1
}

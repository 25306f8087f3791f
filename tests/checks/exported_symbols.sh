#!/usr/bin/env bash
# exported_symbols.sh LIBRARY LIST INSTRUMENTATION: the library exports what the list says, no more and no less.
set -euo pipefail
export LC_ALL=C
library=$1 list=$2 instrumentation=$3

[ "$instrumentation" = none ] || {
    echo "skipped: the library is built with $instrumentation, which adds symbols"
    exit 77
}
sort -c -u "$list"
diff -u --label "$list" --label "exported by $library" \
    "$list" <(nm -D --defined-only "$library" | awk '{ sub(/@.*/, "", $3); print $3 }' | sort) || {
    echo "A symbol came (+) or went (-). If that is meant, change $list with it."
    exit 1
}

#!/bin/sh
# includes.sh: from the top of the source tree, whether every room includes only what CONTRIBUTING.md lets it include.
# A room's line there: its folder, two blanks or more, the folders and headers that it may include beside its own.
set -eu
lines=$(sed -n '/^## Who may include whom/,/^## [^W]/s/^    \([a-z/]*\) */\1 /p' CONTRIBUTING.md)
[ -n "$lines" ] || { echo "CONTRIBUTING.md tells of no room"; exit 1; }
found=$(echo "$lines" | while read -r room allowed; do
    # A header without a folder lies beside its file.
    grep -noE '^#include "[^"]+/[^"]+"' "$room"/*.h "$room"/*.cpp /dev/null | while IFS=: read -r file line include; do
        header=$(echo "$include" | cut -d '"' -f 2)
        for one in "$room" $allowed; do
            case $header in "$one" | "$one"/*) continue 2 ;; esac
        done
        echo "$file:$line: $room/ may not include $header, only its own headers and: $allowed"
    done
done)
[ -z "$found" ] || { echo "$found"; exit 1; }

#!/usr/bin/env bash
# documents.sh SOURCE-DIR PREFIX LIBDIR: what the documents show works with the installed files. By the word after
# a block's opening ```:
#
#   c      a program: compiled as pkg-config says, and run
#   sh     commands: run from the top of the source tree
#   kyb    lines for kybridge-host: run, or only checked where they do not begin with start
#   json, python            run by the tests of python/
#   text, console, cmake    shown only
set -euo pipefail
source=$1 prefix=$2 libdir=$3
export PATH=$prefix/bin:$PATH LD_LIBRARY_PATH=$prefix/$libdir PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One file a block: document.line.tag
documents=$(cd "$source" && ls ./*.md docs/*.md)
(cd "$source" && awk -v work="$work" '
    /^```/ && !inside { inside = 1; tag = substr($0, 4); name = FILENAME; gsub(/[\/.]+/, "_", name)
                        file = work "/" name "." FNR "." (tag == "" ? "untagged" : tag); printf "" > file; next }
    /^```/ && inside { inside = 0; close(file); next }
    inside { print > file }' $documents)

failed=0
count=0
for block in "$work"/*.*.*; do
    name=$(basename "$block")
    case $name in
    *.c)
        (gcc -Wall -Wextra -Werror $(pkg-config --cflags kybridge-sdk kybridge) -o "$block.out" "$block" \
            $(pkg-config --libs kybridge-sdk kybridge) && "$block.out") ;;
    *.sh)
        (cd "$source" && bash -eu "$block" </dev/null) ;;
    *.kyb)
        only_check=
        [ "$(awk 'NF && $1 !~ /^#/ { print $1; exit }' "$block")" = start ] || only_check=--check
        kybridge-host $only_check "$block" ;;
    *.json | *.python | *.text | *.console | *.cmake)
        continue ;;
    *)
        echo "a block without one of the words c, sh, kyb, json, python, text, console, cmake"
        false ;;
    esac >"$work/output" 2>&1 || {
        printf '%s:\n' "$name"
        cat "$work/output"
        failed=1
    }
    count=$((count + 1))
done
echo "$count blocks"
[ -n "$(ls "$work"/*docs_integration_md.*.c)" ]

for program in kybridge-host kybridge-conform; do
    for option in $($program --help | grep -oE '^ +(-[a-z],)?--[a-z-]+' | grep -oE -e '--[a-z-]+'); do
        grep -qF -e "${option//-/\\-}" "$source/docs/$program.1" || {
            echo "docs/$program.1 does not tell of $option"
            failed=1
        }
    done
done
exit $failed

#!/usr/bin/env bash
# headers.sh SOURCE-DIR COMPLIB-INCLUDE-DIR: every header compiles alone. The public ones do so as C and as
# C++ and without complib; clang joins gcc where it is installed.
set -uo pipefail
top=$1 complib=$2
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
c_compilers=(gcc)
cxx_compilers=(g++)
if command -v clang-14 >/dev/null; then
    c_compilers+=(clang-14)
    cxx_compilers+=(clang++-14)
fi

failed=0
# compile HEADER COMPILER FLAG...
compile()
{
    local header=$1 compiler=$2
    shift 2
    printf '#include "%s"\n' "$header" |
        "$compiler" "$@" "${warnings[@]}" -I"$top/include" -fsyntax-only - || {
        echo "$header does not compile alone with $compiler $1"
        failed=1
    }
}

cd "$top" || exit 1
count=0
for header in include/kybridge/*.h; do
    for compiler in "${c_compilers[@]}"; do
        compile "${header#include/}" "$compiler" -std=c11 -xc -Wstrict-prototypes
    done
    for compiler in "${cxx_compilers[@]}"; do
        compile "${header#include/}" "$compiler" -std=c++20 -xc++
    done
    count=$((count + 1))
done
while read -r header; do
    compile "$header" g++ -std=c++20 -xc++ -I"$top" -I"$top/tests" -isystem "$complib"
    count=$((count + 1))
done < <(find bridge sdk sim host tests bench fuzz -name '*.h' 2>/dev/null)
echo "$count headers"
[ $count -gt 3 ] && exit $failed

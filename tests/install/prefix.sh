#!/usr/bin/env bash
# prefix.sh CMAKE BUILD-DIR PREFIX LIBDIR: installs the build into a prefix, and then moves the prefix: nothing in it
# may hold the place that it was installed to.
set -euo pipefail
cmake=$1 build=$2 prefix=$3 libdir=$4
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")

rm -rf "$prefix" "$prefix.first"
"$cmake" --install "$build" --prefix "$prefix.first" --component runtime >/dev/null
installed=$(cd "$prefix.first" && find . ! -type d ! -path './share/doc/*' | sort)
diff -u --label "expected: runtime" --label "installed" - <(echo "$installed") <<END
./$libdir/libkybridge.so.1
./$libdir/libkybridge.so.$version
END

"$cmake" --install "$build" --prefix "$prefix.first" >/dev/null
mv "$prefix.first" "$prefix"
for library in libkybridge libkysdk; do
    file=$prefix/$libdir/$library.so
    [ "$(readlink "$file")" = $library.so.1 ]
    [ "$(readlink "$file.1")" = $library.so.$version ]
    readelf -d "$file" | grep -q "SONAME.*\[$library.so.1\]"
    if readelf -d "$file" | grep -E 'R(UN)?PATH'; then
        echo "$file has a run path"
        exit 1
    fi
done
if grep -rlF -e "$prefix.first" -e "$build" "$prefix" --include='*.pc' --include='*.cmake'; then
    echo "these name a place of this machine"
    exit 1
fi

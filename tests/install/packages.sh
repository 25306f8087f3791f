#!/usr/bin/env bash
# packages.sh SOURCE-DIR BUILD-DIR DIR: makes the Debian packages of a build in a directory, has lintian look at them,
# and builds against them where they are unpacked as the system root of another machine would be.
set -euo pipefail
source=$1 build=$2 into=$3
for tool in dh dpkg-buildpackage lintian; do
    command -v $tool >/dev/null || {
        echo "skipped: $tool is missing; Debian's packages debhelper, dpkg-dev and lintian have what it takes"
        exit 77
    }
done

rm -rf "$into"
"$source/tools/packages" "$into" "$build"
for package in libkybridge1 libkybridge-dev libkysdk1 libkysdk-dev libkybridge-doc kybridge-host libkyrecord1 \
    kybridge-record libkyconform1 libkyconform-dev kybridge-conform python3-kybridge libkybridge1-dbgsym; do
    dpkg-deb -f "$into/$package"_*.deb Package Version Depends Multi-Arch
done
# The files that lintian forgets stay out of everybody's way.
TMPDIR=$into lintian --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs "$into"/*.deb

built=$(dpkg-deb -f "$into"/libkybridge1_*.deb Version)
[ "${built%-*}" = "$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")" ] || {
    echo "debian/changelog tells another version than CMakeLists.txt: $built"
    exit 1
}

# Which version a process needs is told by the interface that it uses, and not by the package that it was built with.
root=$into/root
for package in libkybridge1 libkybridge-dev libkysdk1 libkysdk-dev; do
    dpkg-deb -x "$into/$package"_*.deb "$root"
    dpkg-deb -e "$into/$package"_*.deb "$root/$package"
done
grep -qx "libkybridge 1 libkybridge1 (>= ${built%-*})" "$root/libkybridge1/shlibs"
grep -qx ' ky_bridge_init@KYBRIDGE_1.0 1.0' "$root/libkybridge1/symbols"
flags=$(PKG_CONFIG_SYSROOT_DIR=$root PKG_CONFIG_LIBDIR=$(echo "$root"/usr/lib/*/pkgconfig) \
    pkg-config --cflags --libs kybridge-sdk kybridge)
[ "$(grep -oF "$root" <<<"$flags" | wc -l)" -eq "$(grep -oE -e '-[IL]' <<<"$flags" | wc -l)" ] || {
    echo "pkg-config does not look in the system root: $flags"
    exit 1
}
gcc -x c -o "$into/process" - $flags <<'END'
#include <kybridge/ky_bridge.h>
int main(void)
{
    return (int)ky_bridge_deinit();
}
END

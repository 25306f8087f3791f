#!/usr/bin/env bash
# packages.sh BUILD-DIR DIR: makes the Debian packages of a build in a directory, and has lintian look at them.
set -euo pipefail
build=$1 into=$2
for tool in cpack dpkg-shlibdeps lintian; do
    command -v $tool >/dev/null || {
        echo "skipped: $tool is missing; Debian's packages cmake, dpkg-dev and lintian have what it takes"
        exit 77
    }
done

rm -rf "$into"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$into" >"$build/cpack.log" 2>&1 || {
    cat "$build/cpack.log"
    exit 1
}
for package in libkybridge1 libkybridge-dev libkysdk1 kybridge-host; do
    dpkg-deb -f "$into/$package"_*.deb Package Version Depends
done
# The files that lintian forgets stay out of everybody's way.
TMPDIR=$into lintian --fail-on error --no-tag-display-limit "$into"/*.deb

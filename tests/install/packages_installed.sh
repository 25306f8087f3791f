#!/usr/bin/env bash
# packages_installed.sh DIR SCRIPT: installs the Debian packages in a directory, uses what they bring, runs a script
# with the host among it, and removes them again, whatever happens.
set -euo pipefail
from=$1 script=$2
packages=()
for file in "$from"/*.deb; do packages+=("$(basename "${file%%_*}")"); done

skip()
{
    echo "skipped: $1"
    exit 77
}
[ "$(id -u)" -eq 0 ] || skip "only root can install packages"
command -v dpkg >/dev/null || skip "this is no Debian system"
if dpkg-query -W -f '${Package}\n' "${packages[@]}" 2>/dev/null | grep .; then
    skip "these packages are installed here, and a test must not replace them"
fi

work=$(mktemp -d)
finish()
{
    local status=$?
    dpkg --purge "${packages[@]}" >"$work/purge.log" 2>&1 || { cat "$work/purge.log"; status=1; }
    if dpkg-query -W "${packages[@]}" 2>/dev/null | grep .; then
        echo "these packages are still there"
        status=1
    fi
    [ ! -s "$work/files" ] || while IFS= read -r file; do
        [ ! -e "$file" ] || [ -d "$file" ] || { echo "$file stayed behind"; status=1; }
    done <"$work/files"
    rm -rf "$work"
    exit $status
}
trap finish EXIT

dpkg --install "$from"/*.deb >"$work/install.log" 2>&1 || { cat "$work/install.log"; exit 1; }
dpkg-query -L "${packages[@]}" >"$work/files"

kybridge-host --verbosity 0 "$script" >"$work/output" || {
    cat "$work/output"
    exit 1
}

# The first test in Python that README.md shows; pytest finds the plugin by itself.
if /usr/bin/python3 -c 'import pytest, scapy' 2>"$work/python"; then
    sed -n '/^```python$/,/^```$/{/^```/d;p}' "$(dirname "$script")/../README.md" >"$work/test_readme.py"
    (cd "$work" && /usr/bin/python3 -m pytest -q -p no:cacheprovider test_readme.py)
fi

# The recorder and the module are found where they are installed.
kybridge-record run -o "$work/recording" -- kybridge-host --verbosity 0 "$script" >"$work/output"
kybridge-record check "$work/recording" | grep -F "no difference"

# Nothing tells where the files are.
cat >"$work/version.c" <<'END'
#include <kybridge/ky_bridge.h>
int main(void)
{
    uint32_t level = 0;
    return ky_bridge_log_verbosity_level_get(&level) != KY_STATUS_SUCCESS || level != 3;
}
END
gcc -o "$work/version" "$work/version.c" $(pkg-config --cflags --libs kybridge-sdk kybridge)
"$work/version"

# The example SDK passes where everything is installed, checked by the program and from a process of its own.
example=/usr/share/doc/kybridge-conform/examples/example_sdk.c
gcc -shared -fPIC -o "$work/libexample_sdk.so" $example $(pkg-config --cflags kybridge) -ldl
kybridge-conform --seconds 1 "$work/libexample_sdk.so" >"$work/output" || {
    cat "$work/output"
    exit 1
}
cat >"$work/process.c" <<'END'
#include <kyconform/ky_conform.h>
static void report(const ky_conform_result_t *result, void *failed)
{
    *(int *)failed += result->outcome == KY_CONFORM_FAILS;
}
int main(void)
{
    int failed = 0;
    char error[256];
    const ky_conform_options_t options = {.seconds = 1};
    return ky_conform_run(&options, report, &failed, error, sizeof error) != 0 || failed != 0;
}
END
gcc -rdynamic -o "$work/process" "$work/process.c" $example $(pkg-config --cflags kybridge) \
    $(pkg-config --cflags --libs kyconform) -ldl
"$work/process"

# What it needs is a version of the interface, so a mended package serves it as well.
mkdir "$work/debian"
echo 'Source: process' >"$work/debian/control"
needs=$(cd "$work" && dpkg-shlibdeps -O version)
[[ $needs =~ "libkybridge1 (>= 1.0)" ]] && ! [[ $needs =~ libky[a-z]+1\ \([^\)]*- ]] || {
    echo "a process built against the packages needs: $needs"
    exit 1
}

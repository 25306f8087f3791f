#!/usr/bin/env bash
# pip.sh PACKAGE HOST: pip installs the package for Python from its sources, with its plugin, as the host's version.
set -euo pipefail
package=$1 host=$2
python=/usr/bin/python3
$python -c 'import setuptools, wheel, pytest, pip' 2>/dev/null || {
    echo "skipped: Debian's packages python3-pip, python3-setuptools, python3-wheel and python3-pytest have what it takes"
    exit 77
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$package" "$work/sources" # pip writes beside them
$python -m pip install -q --no-index --no-build-isolation --no-deps --target "$work/installed" "$work/sources"
[ -f "$work/installed/kybridge/py.typed" ]
cd "$work"
export PYTHONPATH=$work/installed KYBRIDGE_HOST=$host
[ "kybridge-host $($python -c 'from importlib import metadata; print(metadata.version("kybridge"))')" = "$($host --version)" ]
echo 'def test_switch(switch): assert switch.show("bridges") == []' >test_plugin.py
$python -m pytest -q -p no:cacheprovider test_plugin.py

#!/bin/sh
# reference.sh SOURCE-DIR PREFIX: the documents are installed, the guide is the reference's front page, and no header
# is left out: doxygen passes over a file without @file in silence, and makes the build fail for everything else.
set -eu
source=$1 pages=$2/share/doc/kybridge
[ -d "$pages/reference" ] || {
    echo "skipped: the reference was not made, because doxygen was missing"
    exit 77
}
cd "$source"
if grep -L '^/// @file' include/kybridge/*.h bridge/*.h | grep -vxE 'bridge/(containers|log)\.h'; then
    echo "these lack @file"
    exit 1
fi
grep -q "<title>kybridge: $(sed -n '1s/# //p' docs/integration.md)</title>" "$pages/reference/index.html"
grep -q ky_bridge_set "$pages/reference/ky__bridge_8h.html"
grep -q __bridge_db_init "$pages/internals/db_8h.html"
if grep -rl __bridge_db_init "$pages/reference"; then
    echo "these tell callers of the module's own operations"
    exit 1
fi
ls "$pages/guide/integration.md" >/dev/null

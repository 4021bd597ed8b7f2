#!/usr/bin/env bash
# Rewrites debian/libdraizu0.symbols from the library that scripts/build-debs.sh built last, after
# a change of the exported interface that is meant. New symbols get the version of
# debian/changelog; symbols that are gone stay as "#MISSING" comments for the reviewer. A symbol
# of the interface that disappears breaks programs built against the old library: that calls for
# a new SONAME (project(VERSION) major), not only for this file.
#
# Instantiations of std and Qt templates (and of the library's header templates) are exported
# too, but which ones the compiler emits changes with any edit of the code that uses them and
# nobody links against them: they are marked optional, so that only the library's own classes and
# functions are held to.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${DRAIZU_DEB_DIR:-$root/build/packages}
version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
staged="$out/draizu-$version/debian/libdraizu0"

if ! compgen -G "$staged/usr/lib/*/libdraizu.so.*" >/dev/null; then
    echo "No library staged in $staged: run scripts/build-debs.sh first" >&2
    exit 1
fi
cd "$root"
generated=$(mktemp)
trap 'rm -f "$generated"' EXIT
dpkg-gensymbols -plibdraizu0 -P"$staged" -v"$version" -c0 -q -O"$generated"

python3 - "$generated" > debian/libdraizu0.symbols <<'PY'
import subprocess, sys

lines = open(sys.argv[1]).read().splitlines()
untagged = [i for i, line in enumerate(lines) if line.startswith(" _Z")]
names = [lines[i].split()[0].split("@")[0] for i in untagged]
demangled = subprocess.run(["c++filt"], input="\n".join(names), capture_output=True, text=True,
                           check=True).stdout.splitlines()
prefixes = ("typeinfo name for ", "typeinfo for ", "vtable for ", "non-virtual thunk to ",
            "virtual thunk to ", "guard variable for ", "VTT for ", "construction vtable for ")
for i, name in zip(untagged, demangled):
    for prefix in prefixes:
        name = name.removeprefix(prefix)
    head = name.split("(")[0]
    if "<" in head or head.startswith(("std::", "__gnu_cxx::")):
        lines[i] = " (optional)" + lines[i][1:]
print("\n".join(lines))
PY
grep -q '^\* Build-Depends-Package:' debian/libdraizu0.symbols ||
    sed -i '1a\* Build-Depends-Package: libdraizu-dev' debian/libdraizu0.symbols
git --no-pager diff --stat -- debian/libdraizu0.symbols 2>/dev/null || true

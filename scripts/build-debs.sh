#!/usr/bin/env bash
# Builds the Debian packages libdraizu0, libdraizu-dev and draizu-tools (a Release build of the
# library and the tools, without tests or benchmarks) and checks them with lintian, which must
# report no error. The packages land in build/packages (or DRAIZU_DEB_DIR); the build runs in a
# copy of the source tree there, so the checkout stays as it was.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${DRAIZU_DEB_DIR:-$root/build/packages}

"$root/scripts/install-deps.sh" debhelper dpkg-dev lintian

version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
project_version=$(sed -n 's/^project(Draizu VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
if [ "${version%%-*}" != "$project_version" ]; then
    echo "debian/changelog is at $version but CMakeLists.txt at $project_version: add a changelog entry" >&2
    exit 1
fi

source_copy="$out/draizu-$version"
rm -rf "$source_copy" "$out"/*.deb "$out"/*.ddeb "$out"/*.buildinfo "$out"/*.changes
mkdir -p "$source_copy"
tar -C "$root" --exclude=./.git --exclude=./build --exclude='./build-*' -cf - . | tar -C "$source_copy" -xf -

(cd "$source_copy" &&
    DEB_BUILD_OPTIONS="nocheck noautodbgsym terse parallel=$(nproc) ${DEB_BUILD_OPTIONS:-}" dpkg-buildpackage -us -uc -b)

lintian --fail-on error "$out/draizu_${version}_$(dpkg --print-architecture).changes"
ls -1 "$out"/*.deb

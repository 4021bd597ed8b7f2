#!/usr/bin/env bash
# Installs the packages that scripts/build-debs.sh wrote into this system, checks what they
# bring (manual pages, completion, the CMake package and draizu.pc, tools that run without an
# RPATH), plays the installer's demo with the installed draizu-installer, and removes the
# packages again, also when a step fails.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${DRAIZU_DEB_DIR:-$root/build/packages}
packages=(libdraizu0 libdraizu-dev draizu-tools)

"$root/scripts/install-deps.sh" man-db

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then
    sudo_cmd=(sudo)
fi

remove_packages() {
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get purge -y -q "${packages[@]}"
}
trap 'remove_packages >/dev/null 2>&1 || true' EXIT

step() { printf '\n== %s ==\n' "$1"; }

step "Install the packages"
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "$out"/{libdraizu0,libdraizu-dev,draizu-tools}_*.deb

step "What they bring"
man -w draizu-installer draizu-apihost
test -f /usr/share/bash-completion/completions/draizu-installer
for tool in /usr/bin/draizu-installer /usr/bin/draizu-apihost; do
    if readelf -d "$tool" | grep -qE 'RPATH|RUNPATH'; then
        echo "$tool carries an RPATH" >&2
        exit 1
    fi
done
echo "draizu.pc: $(pkg-config --modversion draizu) $(pkg-config --cflags --libs draizu)"

step "examples/consumer against the installed library"
work=$(mktemp -d)
trap 'remove_packages >/dev/null 2>&1 || true; rm -rf "$work"' EXIT
cmake -S "$root/examples/consumer" -B "$work/cmake" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/cmake" >/dev/null
"$work/cmake/consumer"
# shellcheck disable=SC2046 # pkg-config's flags are words by design
c++ -std=c++20 "$root/examples/consumer/main.cpp" $(pkg-config --cflags --libs draizu) -o "$work/consumer"
"$work/consumer"

step "/usr/bin/draizu-apihost serves the sample session"
draizu-apihost --stdio < "$root/examples/sample-session.protocol" | grep -c '^1 cmd=COMPLETE'

step "The installer's demo with /usr/bin/draizu-installer"
DRAIZU_DEMO_INSTALLER=/usr/bin/draizu-installer "$root/scripts/demo.sh"

step "Remove the packages"
trap 'rm -rf "$work"' EXIT
remove_packages

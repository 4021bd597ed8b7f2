#!/usr/bin/env bash
# Installs what is missing, builds draizu-installer, writes the sample offline installer, and walks
# through its life with it: what the installer offers, an install with progress, the list of
# installations, a verification, a broken file found by the next one and repaired, a feature
# added, a deleted file repaired, and the uninstall.
# Everything happens under a temporary directory; nothing outside it is touched.
# `scripts/demo.sh protocol` plays the request protocol session of examples/ instead.
# DRAIZU_DEMO_INSTALLER names an installed draizu-installer to use instead of building one.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${DRAIZU_DEMO_BUILD_DIR:-$root/build/demo}

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DDRAIZU_BUILD_TESTS=OFF -DDRAIZU_BUILD_BENCHMARKS=OFF >/dev/null

if [ "${1:-}" = protocol ]; then
    cmake --build "$build" --parallel "$(nproc)" --target draizu-apihost
    session="$root/examples/sample-session.protocol"
    echo "== Requests ($session) =="
    cat "$session"
    echo
    echo "== Replies of draizu-apihost --stdio =="
    status=0
    "$build/tools/apihost/draizu-apihost" --stdio < "$session" || status=$?
    echo "== The host exited with status $status =="
    exit "$status"
fi

installer=${DRAIZU_DEMO_INSTALLER:-}
if [ -z "$installer" ]; then
    cmake --build "$build" --parallel "$(nproc)" --target draizu-installer
    installer="$build/tools/installer/draizu-installer"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The installer's records, logs and preferences stay in the demo's directory.
export DRAIZU_REPOSITORY="$work/repository" XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config"
target="$work/Orvanis 21.0.512"

step() { printf '\n== %s ==\n$ draizu-installer %s\n' "$1" "${*:2}"; }
run() { "$installer" "$@"; }

python3 "$root/scripts/make-sample-installer.py" "$work" --iso >/dev/null
image="$work/sample.iso"

step "What the offline installer offers" available --offline-installer "$image"
run available --offline-installer "$image"

step "Install a build" install Orvanis 21.0.512 --platform linux_x86_64_gcc12 --offline-installer "$image" --installdir "$target"
# Progress every tenth percent; on a terminal the installer draws a live bar instead.
run install Orvanis 21.0.512 --platform linux_x86_64_gcc12 --offline-installer "$image" --installdir "$target" |
    awk '!/^\[/ || /^\[[0-9]*0\/100\]/'

step "What is installed" list
run list

step "Verify the installation" verify "$target"
run verify "$target" | tail -n 1

printf '\n(breaking a file: bin/file00010.py)\n'
echo "not the original" > "$target/bin/file00010.py"
step "Verify again" verify "$target"
status=0
run verify "$target" > "$work/verify.out" 2>&1 || status=$?
grep -v '^\[' "$work/verify.out"
echo "(verify exited with status $status: a file differs from its manifest)"

step "Repair it" repair "$target" --offline-installer "$image"
run repair "$target" --offline-installer "$image" | grep -v '^\['

step "Add the feature \"PDB Files\"" modify "$target" --pdb-files yes --offline-installer "$image"
run modify "$target" --pdb-files yes --offline-installer "$image" | grep -v '^\['

printf '\n(deleting a file: lib/file00011.so)\n'
rm "$target/lib/file00011.so"
step "Repair again" repair "$target" --offline-installer "$image"
run repair "$target" --offline-installer "$image" | grep -v '^\['
run verify "$target" | tail -n 1

step "Uninstall" uninstall "$target"
run uninstall "$target" | tail -n 1

step "What is installed" list
run list

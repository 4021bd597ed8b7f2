#!/usr/bin/env bash
# Installs what is missing, builds, and plays the sample session of examples/ through the API host
# on standard input and output: the requests a client sends, then the host's replies.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${DRAIZU_DEMO_BUILD_DIR:-$root/build/demo}
session=${1:-$root/examples/sample-session.protocol}

"$root/scripts/install-deps.sh"

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DDRAIZU_BUILD_TESTS=OFF -DDRAIZU_BUILD_BENCHMARKS=OFF
cmake --build "$build" --parallel "$(nproc)" --target draizu-apihost

echo "== Requests ($session) =="
cat "$session"
echo
echo "== Replies of draizu-apihost --stdio =="
status=0
"$build/tools/apihost/draizu-apihost" --stdio < "$session" || status=$?
echo "== The host exited with status $status =="
exit "$status"

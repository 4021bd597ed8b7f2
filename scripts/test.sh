#!/usr/bin/env bash
# Installs what is missing, builds with AddressSanitizer and UndefinedBehaviorSanitizer, and runs
# the whole test suite through CTest. Any sanitizer report fails the run.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${DRAIZU_TEST_BUILD_DIR:-$root/build/test}

"$root/scripts/install-deps.sh"

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DDRAIZU_SANITIZE=ON
cmake --build "$build" --parallel "$(nproc)"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:halt_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS=suppressions=$root/scripts/lsan.supp:print_suppressions=0
ctest --test-dir "$build" --output-on-failure --parallel "$(nproc)" "$@"

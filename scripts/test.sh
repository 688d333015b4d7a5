#!/usr/bin/env bash
# The whole test suite: unit and end-to-end tests on a normal build, again
# under AddressSanitizer with UndefinedBehaviorSanitizer, and the threaded
# tests under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
jobs=$(nproc)

scripts/build.sh build
ctest --test-dir build --output-on-failure -j "$jobs"

scripts/build.sh build-asan -DHIVECTL_SANITIZE=address
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j "$jobs"

scripts/build.sh build-tsan -DHIVECTL_SANITIZE=thread
export TSAN_OPTIONS=halt_on_error=1
ctest --test-dir build-tsan --output-on-failure -j "$jobs" -R '^unit\..*(Threaded|Concurrent)'
ctest --test-dir build-tsan --output-on-failure -j "$jobs" -L threaded

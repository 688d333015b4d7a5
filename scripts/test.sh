#!/usr/bin/env bash
# The whole test suite: unit and end-to-end tests on a normal build, the
# Debian package built from it (scripts/check_package.sh), the tests again
# under AddressSanitizer with UndefinedBehaviorSanitizer, and the threaded
# tests under ThreadSanitizer. Warnings are errors. Database tests run against
# a throwaway PostgreSQL server started here and stopped on exit, failure
# included.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
jobs=$(nproc)

pg_dir=$(mktemp -d /tmp/hivectl-pg.XXXXXX)
trap 'scripts/pg_server.sh stop "$pg_dir"' EXIT
HIVECTL_PG_FAST=1 scripts/pg_server.sh start "$pg_dir" >/dev/null
# shellcheck source=/dev/null
. "$pg_dir/env"
# The end-to-end cases empty registry_test before each file; the unit tests
# work in a database of their own so that they may run beside them.
eval "$HIVECTL_PG_ADMIN -c 'CREATE DATABASE registry_unit TEMPLATE $HIVECTL_PG_TEMPLATE'"
unit_spec=${HIVECTL_PG_SPEC/dbname=registry_test/dbname=registry_unit}

# ctest in build tree $1 with the remaining arguments, the unit tests on
# registry_unit, the rest on registry_test.
run_ctest() {
  local dir=$1; shift
  HIVECTL_PG_SPEC=$unit_spec ctest --test-dir "$dir" --output-on-failure -j "$jobs" -R '^unit\.' "$@"
  ctest --test-dir "$dir" --output-on-failure -j "$jobs" -E '^unit\.' "$@"
}

test_options=(-DHIVECTL_TESTS=ON -DHIVECTL_PG_TESTS=ON -DHIVECTL_WERROR=ON)
scripts/build.sh build "${test_options[@]}"
run_ctest build
scripts/check_package.sh build

scripts/build.sh build-asan -DHIVECTL_SANITIZE=address "${test_options[@]}"
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_ctest build-asan

scripts/build.sh build-tsan -DHIVECTL_SANITIZE=thread "${test_options[@]}"
export TSAN_OPTIONS=halt_on_error=1
HIVECTL_PG_SPEC=$unit_spec \
  ctest --test-dir build-tsan --output-on-failure -j "$jobs" -R '^unit\..*(Threaded|Concurrent)'
ctest --test-dir build-tsan --output-on-failure -j "$jobs" -L threaded

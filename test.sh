#!/usr/bin/env bash
# Sets up, builds and runs all tests: on the release build, then on a second build under the address
# and undefined-behaviour sanitizers.
#   --quick     the release build alone
#   --sanitize  the parallel tests under the thread sanitizer too
#   --fuzz      the fuzz targets, a minute each, and nothing else
set -euo pipefail
root=$(cd "$(dirname "$0")" && pwd)
cd "$root"
if [ "${1:-}" = --fuzz ]; then
  exec scripts/fuzz
fi
scripts/setup --tests
scripts/build "$root/build"
ctest --test-dir build --output-on-failure -j2
[ "${1:-}" = --quick ] && exit 0

scripts/build "$root/build-asan" -DSULVA_SANITIZE=ON
ctest --test-dir build-asan --output-on-failure -j2
[ "${1:-}" = --sanitize ] || exit 0

scripts/build "$root/build-tsan" -DSULVA_THREAD_SANITIZE=ON -- sulva sulva_tests
TSAN_OPTIONS="suppressions=$root/tests/thread_sanitizer.supp" "$root/build-tsan/sulva_tests" \
  --gtest_filter='*Worker*:*Thread*:*Share*:*Split*:*Solver*:Multigrid*:BlockCompressor.*:GridCache.*'

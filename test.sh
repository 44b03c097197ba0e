#!/usr/bin/env bash
# Sets up, builds and runs all tests: on the release build, then on a second build under the address
# and undefined-behaviour sanitizers (--quick leaves that out).
set -euo pipefail
root=$(cd "$(dirname "$0")" && pwd)
cd "$root"
scripts/setup
scripts/build "$root/build"
ctest --test-dir build --output-on-failure -j2
[ "${1:-}" = --quick ] && exit 0

scripts/build "$root/build-asan" -DSULVA_SANITIZE=ON
ctest --test-dir build-asan --output-on-failure -j2

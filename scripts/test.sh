#!/usr/bin/env bash
# Every test: sets up, then builds and runs
#   1. the whole suite (warnings are errors),
#   2. the release: scripts/package.sh builds the portable library in a Debian 11 root, makes the Unity
#      package and proves the packaged file there,
#   3. the whole suite again under AddressSanitizer + UndefinedBehaviorSanitizer,
#   4. the concurrency tests under ThreadSanitizer,
#   5. coverage of src/ by the suite, with a floor (scripts/coverage.sh),
#   6. each fuzz target for 30 seconds from its seed corpus (clang, ASan + UBSan).
# `scripts/test.sh --quick` runs only the first.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --test

jobs=$(nproc)
quick=false
[ "${1:-}" = "--quick" ] && quick=true

configure() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORL_WERROR=ON "$@" >/dev/null
}

section() { printf '\n=== %s ===\n' "$*"; }

section "suite"
configure build
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs" --timeout 600

$quick && exit 0

section "release: the portable library and the Unity package, proven on Debian 11"
scripts/package.sh

section "suite under AddressSanitizer + UndefinedBehaviorSanitizer"
configure build-asan -DQUORL_SANITIZE=address,undefined -DQUORL_BUILD_BENCH=OFF
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs" --timeout 900

section "concurrency tests under ThreadSanitizer"
configure build-tsan -DQUORL_SANITIZE=thread -DQUORL_BUILD_BENCH=OFF
# The concurrency tests, and the engine-host simulator, whose brief session and soak are among them.
cmake --build build-tsan -j"$jobs" --target quorl_concurrency_tests quorl-host
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  ctest --test-dir build-tsan --output-on-failure -L concurrency --timeout 900

section "coverage of src/ by the suite (floor: 97% of lines, 92% of branches)"
scripts/coverage.sh

section "fuzz targets, 30 seconds each"
scripts/fuzz.sh 30

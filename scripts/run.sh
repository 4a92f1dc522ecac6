#!/usr/bin/env bash
# The main job: installs what building and running the engine-host simulator needs, builds
# libQuorlBridge.so and quorl-host in build-run/ (no tests, benchmarks or fuzzing there), and plays a
# session. Extra arguments go to quorl-host: `scripts/run.sh --help` lists them.
# Each step prints one line; what the package manager and the build print goes to build-run/run.log,
# which is named, with its last lines, when a step fails.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build-run
log=$dir/run.log
mkdir -p "$dir"
: >"$log"

step() {
  local what=$1
  shift
  echo "run: $what"
  if ! "$@" >>"$log" 2>&1; then
    echo "run: $what failed; the whole output is in $log, its end:" >&2
    tail -n 15 "$log" >&2
    exit 1
  fi
}

step "installing what is missing of the compiler, CMake, git and RapidJSON" scripts/setup.sh
step "configuring $dir" cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DQUORL_BUILD_TESTS=OFF -DQUORL_BUILD_BENCH=OFF -DQUORL_FUZZ=OFF
step "building libQuorlBridge.so and quorl-host" cmake --build "$dir" -j"$(nproc)" --target quorl-host
exec "$dir/tools/host/quorl-host" --library "$dir/libQuorlBridge.so" "$@"

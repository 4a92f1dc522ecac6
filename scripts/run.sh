#!/usr/bin/env bash
# The main job: sets up, builds libQuorlBridge.so and runs the engine-host simulator against it
# (the small example host while the simulator is not there). Extra arguments go to the host.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)"
if [ -x build/tools/host/quorl-host ]; then
  exec build/tools/host/quorl-host --library build/libQuorlBridge.so "$@"
fi
exec build/tools/example_host/quorl-example-host build/libQuorlBridge.so "$@"

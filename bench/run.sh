#!/usr/bin/env bash
# Builds the benchmarks in Release in build-bench/, runs each program once (50 short repetitions of each of
# its benchmarks, the least time kept), counts the same work's instructions under callgrind, and prints
# one table of every ratio of that run (see the README, "Benchmarks").
#
#   bench/run.sh [--quick]
#
# --quick takes 5 repetitions of each benchmark instead of 50, for a first look.
# QUORL_BENCH_LIBRARY=<path> measures another libQuorlBridge.so in the render rows (e.g. an older build).
# Installs what is missing (compiler, CMake, Google Benchmark, RapidJSON, valgrind) as root or via sudo.
# Raw outputs stay in build-bench/results/.
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=50
[ "${1:-}" = "--quick" ] && repetitions=5

packages=(build-essential cmake libbenchmark-dev rapidjson-dev valgrind)
missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "bench/run.sh: run as root to install: ${missing[*]}" >&2; exit 1; }
    as_root=(sudo)
  fi
  echo "bench/run.sh: installing ${missing[*]}" >&2
  export DEBIAN_FRONTEND=noninteractive
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi

build=build-bench
results=$build/results
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DQUORL_BUILD_TESTS=OFF -DQUORL_BUILD_TOOLS=OFF \
  -DQUORL_BUILD_BENCH=ON >/dev/null
cmake --build "$build" -j"$(nproc)" --target render_events_bench base64_bench json_bench bench_table >/dev/null

rm -rf "$results"
mkdir -p "$results/callgrind"
programs=(render_events_bench base64_bench json_bench)

# Repetitions are short (20 ms) and those of the benchmarks of one program run in random order: a busy
# spell of the machine then spoils a few repetitions of each benchmark rather than all of one, and the
# least time of each is an undisturbed one. The render benchmark runs once per pending count: its straightforward table
# takes quadratic time to fill, so each process fills it once, for its own count.
time_program() {
  local program=$1 name=$2
  shift 2
  "$build/bench/$program" --metrics="$results/$name.metrics" --benchmark_repetitions="$repetitions" \
    --benchmark_min_time=0.02 --benchmark_enable_random_interleaving=true "$@" >"$results/$name.log" 2>&1 ||
    { cat "$results/$name.log" >&2; exit 1; }
}
metrics=()
for pending in 0 100 10000 100000; do
  echo "bench/run.sh: timing render_events_bench, $pending pending" >&2
  time_program render_events_bench "render_events_bench.$pending" --benchmark_filter="^floor\$|/$pending\$"
  metrics+=("$results/render_events_bench.$pending.metrics")
done
for program in base64_bench json_bench; do
  echo "bench/run.sh: timing $program" >&2
  time_program "$program" "$program"
  metrics+=("$results/$program.metrics")
done

for program in "${programs[@]}"; do
  echo "bench/run.sh: counting instructions of $program" >&2
  valgrind --tool=callgrind --instr-atstart=no --compress-strings=no --compress-pos=no \
    --callgrind-out-file="$results/callgrind/$program.%p" "$build/bench/$program" --count \
    >"$results/$program.count.log" 2>&1 || { cat "$results/$program.count.log" >&2; exit 1; }
done

"$build/bench/bench_table" --callgrind="$results/callgrind" "${metrics[@]}"

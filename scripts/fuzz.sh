#!/usr/bin/env bash
# Builds the libFuzzer programs of fuzz/ with clang (ASan + UBSan, coverage) in build-fuzz/ and runs each
# for a while, one after another, from a copy of its seed corpus, so that the repository isn't written.
#   scripts/fuzz.sh [seconds-per-target]     (default 30)
# Stops at the first finding, naming the target and the file that reproduces it; rerun that file with
# build-fuzz/fuzz/<target> <file>. Needs only the Debian packages clang and libclang-rt-14-dev.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-30}
if ! [[ $seconds =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: $0 [seconds-per-target]" >&2
  exit 2
fi
for tool in clang clang++ cmake; do
  command -v "$tool" >/dev/null || { echo "$tool is missing: install the Debian packages clang and libclang-rt-14-dev" >&2; exit 2; }
done

build="build-fuzz"
targets=(base64_fuzz path_fuzz json_fuzz option_tree_fuzz resolver_fuzz)

# A build directory configured earlier with another compiler can't be switched to clang in place.
if [ -f "$build/CMakeCache.txt" ] && ! grep -q '^CMAKE_CXX_COMPILER:[A-Z]*=.*clang++' "$build/CMakeCache.txt"; then
  rm -rf "$build"
fi
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORL_FUZZ=ON >/dev/null
cmake --build "$build" -j2 --target "${targets[@]}"

summary=()
for target in "${targets[@]}"; do
  work=$build/fuzz-run/$target
  rm -rf "$work"
  mkdir -p "$work/artifacts"
  cp -r "fuzz/corpus/${target%_fuzz}" "$work/corpus"
  printf '\n=== %s: %s s ===\n' "$target" "$seconds"
  status=0
  "$build/fuzz/$target" "$work/corpus" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$work/artifacts/" >"$work/log" 2>&1 || status=$?
  grep -E '^(stat::|Done )' "$work/log" || true
  if [ "$status" -ne 0 ] || [ -n "$(ls -A "$work/artifacts")" ]; then
    tail -n 60 "$work/log"
    echo
    echo "FINDING in $target (exit status $status); log: $work/log"
    for file in "$work"/artifacts/*; do
      [ -e "$file" ] && echo "  reproduce with: $build/fuzz/$target $file"
    done
    exit 1
  fi
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$work/log")
  summary+=("$(printf '%-18s %4s s %12s runs %8s exec/s %6s corpus files' "$target" "$seconds" "$runs" "$rate" \
    "$(find "$work/corpus" -type f | wc -l)")")
done

printf '\n=== no findings ===\n'
printf '%s\n' "${summary[@]}"

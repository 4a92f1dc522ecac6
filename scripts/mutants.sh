#!/usr/bin/env bash
# The suite's strength, measured: plants the faults of scripts/mutants.txt one at a time in a private copy
# of the checkout (build-mutants/), rebuilds incrementally, runs the whole suite and says for each fault
# whether a test failed ("killed", with the tests that failed) or none did ("survived"). A fault marked
# `runs N` is planted N times, and one caught only in some runs is reported as caught "sometimes".
#   scripts/mutants.sh [--only REGEX] [--in REGEX] [--runs N] [--list]
#     --only REGEX   only the faults whose id matches
#     --in REGEX     only the faults in files whose path matches (e.g. src/options/)
#     --runs N       plant every fault at least N times
#     --list         print the faults and stop
# Ends with "N killed, M survived of T" and exits 1 if any survived (or was caught only sometimes) and 2
# if a fault no longer applies to the code or does not build. Not part of CI: the whole list takes about half
# an hour. Run it after changing tests or the code under them, and before trimming tests.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
list=$top/scripts/mutants.txt
work=$top/build-mutants
copy=$work/source
build=$work/build
log=$work/last.log

only=""
in_files=""
min_runs=1
list_only=false
while [ $# -gt 0 ]; do
  case "$1" in
    --only) only=$2; shift 2 ;;
    --in) in_files=$2; shift 2 ;;
    --runs) min_runs=$2; shift 2 ;;
    --list) list_only=true; shift ;;
    *) echo "usage: $0 [--only REGEX] [--in REGEX] [--runs N] [--list]" >&2; exit 2 ;;
  esac
done

# ---- The list: blocks of "fault <id>", "in <file>", "sed <script>", "why <text>", optional "runs <n>" --
ids=() files=() scripts=() whys=() runs=()
add_fault() {
  [ -n "$id" ] || return 0
  if [ -z "$file" ] || [ -z "$script" ] || [ -z "$why" ]; then
    echo "mutants.txt: fault $id needs in, sed and why" >&2
    exit 2
  fi
  if { [ -z "$only" ] || [[ $id =~ $only ]]; } && { [ -z "$in_files" ] || [[ $file =~ $in_files ]]; }; then
    ids+=("$id") files+=("$file") scripts+=("$script") whys+=("$why") runs+=("$n")
  fi
}
id="" file="" script="" why="" n=1
while IFS= read -r line || [ -n "$line" ]; do
  line=${line#"${line%%[![:space:]]*}"}
  case "$line" in
    ""|"#"*) ;;
    "fault "*) add_fault; id=${line#fault } file="" script="" why="" n=1 ;;
    "in "*) file=${line#in } ;;
    "sed "*) script=${line#sed } ;;
    "why "*) why=${line#why } ;;
    "runs "*) n=${line#runs } ;;
    *) echo "mutants.txt: cannot read: $line" >&2; exit 2 ;;
  esac
done <"$list"
add_fault
total=${#ids[@]}
[ "$total" -gt 0 ] || { echo "no fault matches '$only'" >&2; exit 2; }

if $list_only; then
  for i in "${!ids[@]}"; do printf '%-34s %-34s %s\n' "${ids[$i]}" "${files[$i]}" "${whys[$i]}"; done
  exit 0
fi

# ---- The private copy and its build ---------------------------------------------------------------------
echo "mutants: copying the checkout into ${work#"$top"/} and building it"
mkdir -p "$copy"
# Tracked and new files as they are; times are kept, so an unchanged file is not rebuilt.
git ls-files -z --cached --others --exclude-standard | tar --null -T - -cf - | tar -x -C "$copy"
cmake -S "$copy" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORL_BUILD_BENCH=OFF >"$log" 2>&1 ||
  { tail -n 30 "$log"; echo "mutants: configuring the copy failed" >&2; exit 2; }
cmake --build "$build" -j"$(nproc)" >>"$log" 2>&1 || { tail -n 30 "$log"; echo "mutants: the copy does not build" >&2; exit 2; }
# The suite must pass before any fault is planted, or nothing it says afterwards means anything.
ctest --test-dir "$build" -j"$(nproc)" --timeout 300 >"$log" 2>&1 ||
  { grep -A40 'tests FAILED' "$log" >&2 || true; echo "mutants: the suite fails without any fault" >&2; exit 2; }

# Runs the suite; prints the names of the tests that failed, one line. A fault can make a test hang; the
# timeout, far above any test's time, counts that as caught.
failing_tests() {
  ctest --test-dir "$build" -j"$(nproc)" --timeout 60 >"$log" 2>&1 && return 0
  sed -n '/tests FAILED:/,$ s/^[[:space:]]*[0-9]* - \([^ ]*\).*/\1/p' "$log" | sort -u | tr '\n' ' '
}

killed=0 survived=0 sometimes=0 broken=0
results=()
for i in "${!ids[@]}"; do
  id=${ids[$i]} file=${files[$i]} script=${scripts[$i]}
  n=${runs[$i]}
  [ "$n" -lt "$min_runs" ] && n=$min_runs
  target=$copy/$file
  if ! sed -e "$script" "$top/$file" >"$target.mutant" 2>"$log" || cmp -s "$top/$file" "$target.mutant"; then
    rm -f "$target.mutant"
    results+=("$(printf '%-10s %-34s no longer applies to %s' STALE "$id" "$file")")
    printf '%s\n' "${results[-1]}"
    broken=$((broken + 1))
    continue
  fi
  mv "$target.mutant" "$target"
  caught=0 names=""
  if ! cmake --build "$build" -j"$(nproc)" >"$log" 2>&1; then
    results+=("$(printf '%-10s %-34s does not build' BROKEN "$id")")
    broken=$((broken + 1))
  else
    for ((run = 1; run <= n; run++)); do
      failed=$(failing_tests || true)
      if [ -n "$failed" ]; then
        caught=$((caught + 1))
        names+=" $failed"
      fi
    done
    names=$(tr ' ' '\n' <<<"$names" | sed '/^$/d' | sort -u | tr '\n' ' ')
    if [ "$caught" -eq "$n" ]; then
      verdict=killed killed=$((killed + 1))
    elif [ "$caught" -eq 0 ]; then
      verdict=SURVIVED survived=$((survived + 1))
    else
      verdict="SOMETIMES" sometimes=$((sometimes + 1))
    fi
    detail="$caught/$n runs"
    [ -n "$names" ] && detail+=": $names"
    results+=("$(printf '%-10s %-34s %s' "$verdict" "$id" "$detail")")
  fi
  printf '%s\n' "${results[-1]}"
  # Back to the original, with a new time so that the next build sees the change.
  cp "$top/$file" "$target"
  touch "$target"
done
cmake --build "$build" -j"$(nproc)" >"$log" 2>&1 || true

echo
printf '%s\n' "${results[@]}"
echo
echo "$killed killed, $((survived + sometimes)) survived of $total" \
  "$([ "$sometimes" -gt 0 ] && echo "($sometimes caught only sometimes)")" \
  "$([ "$broken" -gt 0 ] && echo "($broken stale or broken)")"
[ "$broken" -eq 0 ] || exit 2
[ $((survived + sometimes)) -eq 0 ] || exit 1

#!/usr/bin/env bash
# Line and branch coverage of src/ by the test suite, with a floor.
#
# Builds the library and its tests with gcov counters in build-coverage/ (Debug, so that each source line
# is code of its own), runs the suite there, and prints the lines and branches of src/ that it covers,
# per folder and in all (gcovr; the branches that only exceptions take are left out). Fails when the
# suite fails, or when all of src/ falls below 97% of lines or 92% of branches.
#
#   scripts/coverage.sh            the table, and the floor enforced
#   scripts/coverage.sh --html     also build-coverage/coverage/index.html, line by line
#
# Left out of the run: the packaging tests (they build a consumer against the installed, instrumented
# core library, which would need the gcov runtime) and the programs of tools/, which load the shipped
# library as an engine does and add little to src/ that the unit tests do not reach.
set -euo pipefail
cd "$(dirname "$0")/.."

line_floor=97
branch_floor=92
dir=build-coverage
html=false
[ "${1:-}" = "--html" ] && html=true

if ! command -v gcovr >/dev/null; then
  echo "coverage: gcovr not found: install the Debian package gcovr" >&2
  exit 2
fi
jobs=$(nproc)

cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DQUORL_COVERAGE=ON -DQUORL_WERROR=ON \
  -DQUORL_BUILD_BENCH=OFF -DQUORL_BUILD_TOOLS=OFF >/dev/null
cmake --build "$dir" -j"$jobs"
# Counts of an earlier run would add up with this one's.
find "$dir" -name '*.gcda' -delete
ctest --test-dir "$dir" --output-on-failure -j"$jobs" --timeout 900 -LE packaging

summary=$dir/coverage-summary.json
report=(--root . --filter 'src/' --exclude-throw-branches -j "$jobs")
# gcovr 5.2 can hang when one of its workers fails; a bounded wait turns that into a failure.
timeout 600 gcovr "${report[@]}" --json-summary "$summary" "$dir"
if $html; then
  mkdir -p "$dir/coverage"
  timeout 600 gcovr "${report[@]}" --html-details "$dir/coverage/index.html" "$dir"
  echo "coverage: line by line in $dir/coverage/index.html"
fi

python3 - "$summary" "$line_floor" "$branch_floor" <<'EOF'
import json
import sys

summary, line_floor, branch_floor = sys.argv[1], float(sys.argv[2]), float(sys.argv[3])
folders = {}
for entry in json.load(open(summary))["files"]:
    folder = entry["filename"].rsplit("/", 1)[0] + "/"
    counts = folders.setdefault(folder, [0, 0, 0, 0])
    for i, key in enumerate(("line_covered", "line_total", "branch_covered", "branch_total")):
        counts[i] += entry[key]
total = [sum(counts[i] for counts in folders.values()) for i in range(4)]

def percent(covered, all_):
    return 100.0 * covered / all_ if all_ else 100.0

def row(name, counts):
    lines, branches = percent(counts[0], counts[1]), percent(counts[2], counts[3])
    print(f"{name:<14}{counts[0]:>7}/{counts[1]:<6}{lines:6.1f}%{counts[2]:>9}/{counts[3]:<6}{branches:6.1f}%")
    return lines, branches

print(f"{'':<14}{'lines':>21}{'branches':>23}")
for folder in sorted(folders):
    row(folder, folders[folder])
lines, branches = row("src/ in all", total)
if lines < line_floor or branches < branch_floor:
    print(f"coverage: FAILED: {lines:.2f}% of lines and {branches:.2f}% of branches; the floor is "
          f"{line_floor:g}% and {branch_floor:g}%")
    sys.exit(1)
print(f"coverage: at or above the floor of {line_floor:g}% of lines and {branch_floor:g}% of branches")
EOF

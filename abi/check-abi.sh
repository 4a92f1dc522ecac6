#!/usr/bin/env bash
# Holds the interface of a built libQuorlBridge.so (its exported functions with their signatures, and
# every record and callback type that they use) against the committed baseline abi/libQuorlBridge.abi,
# with libabigail (Debian package abigail-tools).
#
#   abi/check-abi.sh [--baseline FILE] [--debug-info-dir DIR] LIBRARY           compare
#   abi/check-abi.sh --update [--baseline FILE] [--debug-info-dir DIR] LIBRARY  rewrite the baseline
#
# The comparison is semantic (abidiff), so the compiler, its DWARF version, the optimisation level and
# the build folder do not count, only what a caller of the library could notice: a function added,
# removed or changed in its parameters or result, and a record or callback type changed in size, in the
# order, offset or type of a field. The library must carry debug information (RelWithDebInfo or Debug,
# or a separate debug file whose folder --debug-info-dir names).
#
# Exit status: 0 same interface; 1 the interface differs (the difference is printed); 2 usage or tool
# error; 77 the library has no debug information, so there is nothing to compare.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
baseline=$here/libQuorlBridge.abi
update=false
debug_dir=""
library=""

say() { printf 'check-abi: %s\n' "$*"; }
usage() {
  say "usage: $0 [--update] [--baseline FILE] [--debug-info-dir DIR] LIBRARY" >&2
  exit 2
}

while [ $# -gt 0 ]; do
  case $1 in
    --update) update=true ;;
    --baseline) [ $# -ge 2 ] || usage; baseline=$2; shift ;;
    --debug-info-dir) [ $# -ge 2 ] || usage; debug_dir=$2; shift ;;
    -*) usage ;;
    *) [ -z "$library" ] || usage; library=$1 ;;
  esac
  shift
done
[ -n "$library" ] || usage

for tool in abidw abidiff; do
  if ! command -v "$tool" >/dev/null; then
    say "$tool not found: install the Debian package abigail-tools" >&2
    exit 2
  fi
done
if [ ! -f "$library" ]; then
  say "no library at $library" >&2
  exit 2
fi
debug_args=()
[ -n "$debug_dir" ] && debug_args=(--debug-info-dir "$debug_dir")

# The interface as libabigail reads it: only what the exported functions reach, without paths, source
# lines or needed libraries, and with type ids derived from the types themselves, so that a baseline
# written from it changes only when the interface does.
current=$(mktemp)
trap 'rm -f "$current"' EXIT
abidw --exported-interfaces-only --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs \
  --no-elf-needed --type-id-style hash "${debug_args[@]}" --out-file "$current" "$library" || {
  say "abidw could not read $library" >&2
  exit 2
}

# Without debug information abidiff sees bare symbols and reports no change at all, whatever changed, so
# every exported function must come with its declaration.
exported=$(grep -c "<elf-symbol name='[^']*' type='func-type' .*is-defined='yes'" "$current" || true)
declared=$(grep -c '<function-decl ' "$current" || true)
if [ "$declared" -lt "$exported" ]; then
  say "$library has no debug information for $((exported - declared)) of its $exported exported" \
    "functions, so its interface cannot be compared. Build it with -g (CMAKE_BUILD_TYPE RelWithDebInfo" \
    "or Debug), or name the folder of its separate debug file with --debug-info-dir." >&2
  exit 77
fi

if $update; then
  # A translation unit keeps its source file's name, relative to the checkout here, and its language
  # without the standard's year (DWARF 5 names C++14, DWARF 4 does not); abidiff compares neither.
  sed -E -e "s#path='[^']*/(src/[^']*)'#path='\\1'#" \
    -e "s#language='LANG_C_plus_plus[_0-9]*'#language='LANG_C_plus_plus'#" "$current" >"$baseline"
  say "wrote $baseline from $library ($declared functions); commit it"
  exit 0
fi

if [ ! -f "$baseline" ]; then
  say "no baseline at $baseline" >&2
  exit 2
fi
diff_args=(--no-default-suppression --fail-no-debug-info)
[ -n "$debug_dir" ] && diff_args+=(--d2 "$debug_dir")
status=0
report=$(abidiff "${diff_args[@]}" "$baseline" "$library" 2>&1) || status=$?
[ -n "$report" ] && printf '%s\n' "$report"
# abidiff's status is a set of bits: 1 error, 2 usage, 4 an interface change, 8 an incompatible one.
if [ $((status & 3)) -ne 0 ]; then
  say "abidiff could not compare $library with $baseline (status $status)" >&2
  exit 2
fi
if [ "$status" -ne 0 ]; then
  say "FAILED: the interface of $library differs from the baseline $baseline (see above)."
  say "If the change is intended, rewrite the baseline and commit it:" \
    "cmake --build <build folder> --target quorl_abi_baseline (or $0 --update $library)."
  exit 1
fi
say "$library matches the baseline ($(grep -c '<function-decl ' "$baseline") functions)"

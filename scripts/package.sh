#!/usr/bin/env bash
# The release. Builds the shipped libQuorlBridge.so in a Debian 11 (bullseye: GCC 10, glibc 2.31) build
# root with the C++ runtime linked in, makes the Unity package from it, and proves the packaged file on
# that old system:
#   1. the build root: made with debootstrap from the Debian archive this machine uses, kept in
#      build-release/root and reused while its package list is the same (--fresh-root makes it anew);
#   2. the build: a copy of this checkout, built in the root (Release with debug information);
#   3. the package: dist/com.quorl.bridge/ (the package manager's layout; "Add package from disk", or
#      the root of a git branch for "Add package from git URL") and dist/com.quorl.bridge-<version>.tgz
#      ("Add package from tarball"), the library stripped of its debug information;
#   4. what the library needs of a system (GLIBC_ at most 2.27, no GLIBCXX_), its interface against the
#      baseline in abi/ (before stripping), and inside the root, against
#      the file from the tarball: the loader resolves it, the shipped-library tests, a quorl-host session
#      and the C# binding's test under Mono against the packaged Runtime.
# Needs root (debootstrap, chroot). Prints a line per step; the tools' output goes to
# build-release/package.log, whose end is shown when a step fails.
#   scripts/package.sh [--fresh-root]
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD
work=$top/build-release
root=$work/root
dist=$top/dist
log=$work/package.log
suite=bullseye
glibc_floor=2.27
root_packages=g++,make,cmake,binutils,rapidjson-dev,libgtest-dev,libgmock-dev,mono-mcs,mono-runtime

fresh_root=false
case "${1:-}" in
  "") ;;
  --fresh-root) fresh_root=true ;;
  *) echo "usage: $0 [--fresh-root]" >&2; exit 2 ;;
esac

started=$SECONDS
step() { printf 'package: %-58s (%3d s)\n' "$*" $((SECONDS - started)); }
fail() {
  printf '\npackage: FAILED: %s\n' "$1" >&2
  if [ -s "$log" ]; then
    printf 'package: the end of %s:\n' "$log" >&2
    tail -n "${2:-25}" "$log" | sed 's/^/  | /' >&2
  fi
  exit 1
}
# Runs a command with its output in the log; fails with `what` if it fails.
run() {
  local what=$1
  shift
  echo "+ $*" >>"$log"
  "$@" >>"$log" 2>&1 || fail "$what"
}

[ "$(id -u)" -eq 0 ] || fail "needs root: debootstrap and chroot make and use the Debian 11 build root"
mkdir -p "$work"
: >"$log"

# ---- What this script needs of the host --------------------------------------------------------------
missing=()
for tool in debootstrap:debootstrap cmake:cmake readelf:binutils strip:binutils tar:tar gzip:gzip abidiff:abigail-tools; do
  command -v "${tool%%:*}" >/dev/null || missing+=("${tool#*:}")
done
if [ ${#missing[@]} -gt 0 ]; then
  step "installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  run "apt-get update failed" apt-get update
  run "could not install ${missing[*]}" apt-get install -y --no-install-recommends "${missing[@]}"
fi

# ---- 1. The build root -------------------------------------------------------------------------------
# Whatever is mounted in the root is unmounted on every way out, before anything may remove the root.
unmount_root() {
  local mounted
  mounted=$(awk -v r="$root/" 'index($2"/", r) == 1 {print $2}' /proc/mounts | sort -r)
  for m in $mounted; do umount -l "$m" || true; done
}
remove_root() {
  unmount_root
  if awk -v r="$root/" 'index($2"/", r) == 1' /proc/mounts | grep -q .; then
    fail "something is still mounted in $root; not removing it"
  fi
  rm -rf --one-file-system "$root" "$root.partial"
}
trap unmount_root EXIT

# The Debian archive this machine already uses (not its security archive); QUORL_DEBIAN_MIRROR overrides.
debian_mirror() {
  local uri
  for uri in $(sed -n 's/^URIs:[[:space:]]*//p' /etc/apt/sources.list.d/*.sources 2>/dev/null) \
             $(awk '$1 == "deb" { for (i = 2; i <= NF; i++) if ($i ~ /^https?:/) { print $i; break } }' \
               /etc/apt/sources.list /etc/apt/sources.list.d/*.list 2>/dev/null); do
    case "$uri" in
      *security*|*updates*) ;;
      */debian|*/debian/) echo "${uri%/}"; return ;;
    esac
  done
  echo "http://deb.debian.org/debian"
}
mirror=${QUORL_DEBIAN_MIRROR:-$(debian_mirror)}
wanted="$suite $root_packages"

if $fresh_root || [ "$(cat "$root/.quorl-root" 2>/dev/null)" != "$wanted" ]; then
  [ -e "$root" ] && remove_root
  step "making the $suite build root from $mirror"
  echo "+ debootstrap --variant=minbase --include=$root_packages $suite $root.partial $mirror" >>"$log"
  if ! debootstrap --variant=minbase --include="$root_packages" "$suite" "$root.partial" "$mirror" >>"$log" 2>&1; then
    rm -rf --one-file-system "$root.partial"
    fail "could not make the Debian 11 build root: debootstrap $suite from $mirror failed" 8
  fi
  mv "$root.partial" "$root"
  echo "$wanted" >"$root/.quorl-root"
else
  step "reusing the $suite build root in ${root#"$top"/}"
fi
mount -t proc proc "$root/proc" || fail "could not mount /proc in the build root"

# Runs a shell command inside the root, with a clean environment.
in_root() {
  chroot "$root" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
    HOME=/root LANG=C.UTF-8 SOURCE_DATE_EPOCH="$epoch" bash -euo pipefail -c "$1"
}

# ---- 2. The build -------------------------------------------------------------------------------------
step "copying the checkout into the root"
rm -rf --one-file-system "$root/quorl/src"
mkdir -p "$root/quorl/src"
build_info=()
epoch=$(date +%s)
if git rev-parse --git-dir >/dev/null 2>&1; then
  # Tracked and new files as they are in the working tree; file times are kept, so rebuilds are partial.
  git ls-files -z --cached --others --exclude-standard | tar --null -T - -cf - | tar -x -C "$root/quorl/src"
  build_info=(-DQUORL_GIT_HASH="$(git rev-parse HEAD)" -DQUORL_GIT_BRANCH="$(git rev-parse --abbrev-ref HEAD)")
  [ -n "$(git status --porcelain --untracked-files=no)" ] && build_info+=(-DQUORL_GIT_MODIFIED=True)
  epoch=$(git log -1 --format=%ct)  # the build date is the commit's, as a reproducible build wants
else
  tar --exclude='./build*' --exclude=./dist --exclude=./.git -cf - . | tar -x -C "$root/quorl/src"
fi

step "building the library and its checks with the root's GCC 10"
build_args=""
for arg in "${build_info[@]}"; do build_args+=" $(printf '%q' "$arg")"; done
jobs=$(nproc)
run "configuring in the build root failed" in_root "cmake -S /quorl/src -B /quorl/build \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORL_STATIC_CXX_RUNTIME=ON -DQUORL_WERROR=ON -DQUORL_BUILD_BENCH=OFF \
  ${build_args}"
run "building in the build root failed" in_root "cmake --build /quorl/build -j$jobs --target \
  QuorlBridge quorl_shipped_library_test quorl-host quorl_binding_test_native"
cp "$root/quorl/build/libQuorlBridge.so" "$work/libQuorlBridge.so"

# ---- 3. The package -----------------------------------------------------------------------------------
version=$(sed -n 's/^project(QuorlBridge VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
tarball=$dist/com.quorl.bridge-$version.tgz
step "making the Unity package in ${dist#"$top"/}"
mkdir -p "$dist"
run "making the Unity package failed" env SOURCE_DATE_EPOCH="$epoch" cmake -DLIBRARY="$work/libQuorlBridge.so" \
  -DOUT="$dist/com.quorl.bridge" -DTARBALL="$tarball" -DSTRIP="$(command -v strip)" -P cmake/UnityPackage.cmake

# ---- 4. What it needs, and the proof on the old system -----------------------------------------------
step "checking what the library needs of a system"
rm -rf --one-file-system "$root/quorl/check"
mkdir -p "$root/quorl/check"
tar -xzf "$tarball" -C "$root/quorl/check"
shipped=/quorl/check/package/Runtime/Plugins/x86_64/libQuorlBridge.so
needs=$(cmake -DQUORL_REPORT_LIBRARY="$root$shipped" -DQUORL_GLIBC_AT_MOST=$glibc_floor -DQUORL_NO_GLIBCXX=ON \
  -P cmake/Packaging.cmake 2>&1) || { echo "$needs" >>"$log"; fail "the library breaks the floor" 6; }
needs=${needs#-- }

step "checking the interface against its baseline"
run "the portable library's interface differs from abi/libQuorlBridge.abi" abi/check-abi.sh "$work/libQuorlBridge.so"

step "in the $suite root: the loader resolves the packaged library"
run "the loader of the $suite root does not accept the packaged library" in_root \
  "ldd -r $shipped; ! ldd -r $shipped 2>&1 | grep -E 'not found|undefined symbol'"
step "in the $suite root: the shipped-library tests"
run "the shipped-library tests failed in the $suite root" in_root \
  "QUORL_LIBRARY=$shipped /quorl/build/tests/shipped/quorl_shipped_library_test"
step "in the $suite root: a quorl-host session"
run "the quorl-host session failed in the $suite root" in_root \
  "/quorl/build/tools/host/quorl-host --library $shipped --no-progress"
step "in the $suite root: the C# binding's test under Mono"
run "the C# binding's test failed under Mono in the $suite root" in_root "
  cd /quorl/check && rm -rf mono && mkdir mono
  mcs -nologo -warnaserror+ -target:library -out:mono/QuorlBridge.dll package/Runtime/*.cs
  mcs -nologo -warnaserror+ -out:mono/BindingTest.exe -r:mono/QuorlBridge.dll /quorl/src/bindings/csharp/tests/BindingTest.cs
  LD_LIBRARY_PATH=/quorl/check/package/Runtime/Plugins/x86_64:/quorl/build/bindings/csharp MONO_PATH=mono \
    mono --debug mono/BindingTest.exe /quorl/src/cmake/exports.map"

size=$(stat -c %s "$tarball")
printf '\npackage: %s (%s bytes, %s KiB)\n' "${tarball#"$top"/}" "$size" $(((size + 1023) / 1024))
printf 'package: %s\n' "$needs"
printf 'package: loads and passes its checks on Debian 11 (glibc 2.31); %d s in all\n' $((SECONDS - started))

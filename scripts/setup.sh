#!/usr/bin/env bash
# Installs the Debian packages the project needs, and only those that are missing.
#   scripts/setup.sh          what building and running the engine-host simulator needs (scripts/run.sh)
#   scripts/setup.sh --test   everything: tests, benchmarks, the C# binding's test, fuzzing, packaging
# Runs as root (or through sudo when available). Safe to run again: with nothing missing it does nothing.
set -euo pipefail

packages=(g++ make cmake git rapidjson-dev)
if [ "${1:-}" = "--test" ]; then
  packages+=(
    build-essential pkg-config binutils
    libgtest-dev libgmock-dev libbenchmark-dev
    mono-mcs mono-runtime
    clang libclang-rt-14-dev
    debootstrap abigail-tools gcovr
  )
elif [ $# -gt 0 ]; then
  echo "usage: scripts/setup.sh [--test]" >&2
  exit 2
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: run as root to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"

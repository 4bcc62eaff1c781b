#!/usr/bin/env bash
# Builds the seed program and writes what the fuzz programs begin with: one directory per program,
# made from the simulated sensor.
#   make_fuzz_seeds.sh DIRECTORY
set -euo pipefail

case "${1:-}" in
  "" | -*)
    sed -n '2,4s/^# \{0,1\}//p' "$0"
    [ "${1:-}" = --help ] || [ "${1:-}" = -h ] || exit 2
    exit 0
    ;;
esac
mkdir -p "$1"
directory="$(cd "$1" && pwd)"
cd "$(dirname "$0")/.."

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)" --target make_fuzz_seeds
build/fuzz/fuzz/make_fuzz_seeds "$directory"

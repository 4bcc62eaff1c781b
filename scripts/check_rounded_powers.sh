#!/bin/sh
# Every float through the vector forms of the power and the logarithm, against the library. Takes
# some minutes for each instruction set. Arguments: sets to check, default all that this machine has.
set -eu
cd "$(dirname "$0")/.."
build=$(mktemp -d)
trap 'rm -rf "$build"' EXIT

run() {
  name=$1
  shift
  "${CXX:-g++}" -std=c++20 -O3 -ffp-contract=off "$@" -Isrc -o "$build/$name" \
    scripts/check_rounded_powers.cpp src/lanes/rounded_powers.cpp
  "$build/$name"
}

sets=${*:-plain}
if [ $# -eq 0 ]; then
  grep -qw avx2 /proc/cpuinfo && sets="$sets avx2"
  grep -qw avx512dq /proc/cpuinfo && sets="$sets avx512"
fi
for set in $sets; do
  case $set in
    plain) run plain ;;
    avx2) run avx2 -mavx2 ;;
    avx512) run avx512 -mavx512f -mavx512bw -mavx512dq -mavx512vl -Wno-uninitialized ;;
    *) echo "unknown instruction set: $set" >&2 && exit 2 ;;
  esac
done

#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#   ./run_tests.sh          release build, all tests
#   ./run_tests.sh --all    what CI runs: also sanitizers, clang, formatting and static checks
set -euo pipefail
cd "$(dirname "$0")"

mode="${1:-}"
case "$mode" in
  "" | --all) ;;
  -h | --help)
    sed -n '2,4s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
  *)
    echo "unknown option: $mode (see --help)" >&2
    exit 2
    ;;
esac

scripts/install_dependencies.sh test
jobs="$(nproc)"

. scripts/steps.sh

step "Release build"
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs"
if [ "$mode" = --all ]; then
  step "All checks below"
  scripts/check_all.sh
fi
step "Release tests"
ctest --test-dir build/release -j "$jobs" --output-on-failure --progress -LE live
step "Live runs of the programs"
ctest --test-dir build/release --output-on-failure --progress -L live

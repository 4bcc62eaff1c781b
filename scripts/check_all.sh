#!/usr/bin/env bash
# The checks beside the release tests: formatting, static analysis, the ring's model, changes that
# the tests must notice, clang, a long stream, sanitizers, fuzzing, a short soak, the package. Needs
# the release build.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/steps.sh
jobs="$(nproc)"

step "Formatting"
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror

step "clang-tidy on src/ and client/"
git ls-files 'src/*.cpp' 'client/*.cpp' |
  xargs -P "$jobs" -n 2 clang-tidy -p build/release --quiet 2>/dev/null

step "Benchmarks build"
cmake --build --preset release -j "$jobs" --target kerul_road kerul_bench

step "Ring protocol as a model"
scripts/check_ring_model.sh

step "A rotating part of the changes the tests must notice"
scripts/check_mutants.sh --today 10

step "clang build, warnings as errors, and the tests that hold every bit"
cmake -S . -B build/clang -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Release \
  -DKERUL_WARNINGS_AS_ERRORS=ON -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON -DKERUL_BUILD_PAGE=OFF >/dev/null
exact=(tests_differential tests_MIPI_reader_parser tests_MIPI_reader_node)
cmake --build build/clang -j "$jobs" --target lidar_node kerul_lidar_client tools/all "${exact[@]}"
for program in "${exact[@]}"; do
  log="build/clang/$program.log"
  "build/clang/tests/$program" --gtest_brief=1 >"$log" 2>&1 || { cat "$log"; exit 1; }
  tail -n 1 "$log"
done
ctest --test-dir build/clang -R HoldsNoFusedInstruction

step "A million packets with every fault, byte for byte"
ctest --test-dir build/release -C long -L long --output-on-failure

step "Build with the address and undefined-behaviour sanitizers"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"

step "Tests under the address and undefined-behaviour sanitizers"
ctest --test-dir build/asan -j "$jobs" --output-on-failure --progress -LE live
ctest --test-dir build/asan --output-on-failure --progress -L live

step "Threads of ring, client and node under the thread sanitizer"
scripts/check_threads.sh

step "Fuzz programs, twenty seconds each"
scripts/run_fuzzers.sh 20

step "Short soak"
may_be_skipped scripts/soak.sh --short

step "Debian package"
KERUL_BUILD=build/release may_be_skipped scripts/check_package.sh

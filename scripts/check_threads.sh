#!/usr/bin/env bash
# Runs everything with threads of its own under the thread sanitizer: the tests of ring and client,
# and the real node with the simulated sensor, from its start to its end. Exit status 0 only when the
# sanitizer reported nothing; the reports stay in build/tsan/reports/.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$(nproc)" \
  --target lidar_node sensor_simulator tests_output tests_client tests_c_interface tests_process
reports="$PWD/build/tsan/reports"
rm -rf "$reports"
mkdir -p "$reports"
# Bus errors of a truncated ring are what the tests cause and the node mends: no report of them.
export TSAN_OPTIONS="log_path=$reports/report:handle_sigbus=0"
run() { "build/tsan/tests/$1" --gtest_brief=1 "${@:2}"; }

status=0
run tests_output || status=1
run tests_client || status=1
run tests_c_interface || status=1
# The whole chain: streams with faults, interrupts, kills, restarts. Only what also holds of a node
# that is ten times slower and has the sanitizer's own thread beside its worker.
live="Interrupt.AnIdleNode*:Interrupt.AHailOf*:LiveRun.AFaulty*:LiveRun.AReaderFinds*:\
LiveRun.AKilledNodes*:LiveRun.ARemovedRing*"
run tests_process --gtest_filter="$live" || status=1

if [ -n "$(ls -A "$reports")" ]; then
  cat "$reports"/* >&2
  status=1
fi
exit "$status"

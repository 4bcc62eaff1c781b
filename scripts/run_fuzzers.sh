#!/usr/bin/env bash
# Builds the fuzz programs, makes their seeds and runs each program. Exit status 0 only when none
# found anything; a finding's input and log stay in build/fuzz/findings/<program>/.
#   run_fuzzers.sh SECONDS [PROGRAM...]   each that long, as many at a time as there are cores
# Inputs found stay in build/fuzz/corpus/ and are used the next time.
set -euo pipefail

usage() { sed -n '2,6s/^# \{0,1\}//p' "$0"; }
case "${1:-}" in
  -h | --help)
    usage
    exit 0
    ;;
  "" | *[!0-9]*)
    usage >&2
    exit 2
    ;;
esac
seconds="$1"
shift
cd "$(dirname "$0")/.."
out="$PWD/build/fuzz"
jobs="$(nproc)"

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs" --target fuzz_programs
programs=("$@")
if [ "${#programs[@]}" -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do programs+=("$(basename "$source" .cpp)"); done
fi
seeds="$(mktemp -d)"
trap 'rm -rf "$seeds"' EXIT
"$out/fuzz/make_fuzz_seeds" "$seeds"

# The slowest inputs are whole frames: some hundred milliseconds on an idle machine.
run_one() {
  local program="$1" findings="$out/findings/$1" log status=0
  mkdir -p "$findings" "$out/corpus/$program" "$seeds/$program"
  log="$findings/log"
  local inputs=("$out/corpus/$program" "$seeds/$program")
  [ ! -d "fuzz/regressions/$program" ] || inputs+=("fuzz/regressions/$program")
  # The time limit catches a program that hangs where libFuzzer does not look at its clock.
  timeout -k 10 "$((seconds + 240))" "$out/fuzz/$program" "-max_total_time=$seconds" -timeout=60 \
    -rss_limit_mb=3000 -max_len=16384 -print_final_stats=1 "-artifact_prefix=$findings/" \
    "${inputs[@]}" >"$log" 2>&1 || status=$?
  local runs
  runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")"
  if [ "$status" -eq 0 ]; then
    echo "  $program: ${runs:-?} inputs, nothing found"
  else
    echo "  $program: FOUND SOMETHING (status $status) after ${runs:-?} inputs:"
    grep -aE 'does not hold|runtime error|ERROR|SUMMARY|Test unit written' "$log" | head -n 8 ||
      tail -n 5 "$log"
  fi
  return "$status"
}
export -f run_one
export seconds out seeds

rounds=$(((${#programs[@]} + jobs - 1) / jobs))
echo "${#programs[@]} programs, $seconds s each, $jobs at a time: about $((rounds * seconds)) s"
if printf '%s\n' "${programs[@]}" | xargs -P "$jobs" -I{} bash -c 'run_one {}'; then
  echo "No finding."
else
  echo "There are findings, see build/fuzz/findings/" >&2
  exit 1
fi

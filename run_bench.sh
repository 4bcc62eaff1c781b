#!/usr/bin/env bash
# Builds the release and measures it; prints Markdown and keeps it in build/bench_results.md.
#   ./run_bench.sh            whole road, stages, kinds of frames, latency, every kernel: some minutes
#   ./run_bench.sh --quick    the same with few repetitions
#   ./run_bench.sh --update   latency over 10,000 frames, and all into docs/performance.md
set -euo pipefail
cd "$(dirname "$0")"

quick=()
update=false
latency=(--frames 300)
scale=(--frames 100)
for argument in "$@"; do
  case "$argument" in
    --quick)
      quick=(--quick)
      latency=(--frames 60)
      scale=(--frames 10)
      ;;
    --update)
      update=true
      latency=(--frames 10000 --svg docs/images/latency.svg)
      ;;
    -h | --help)
      sed -n '2,5s/^# \{0,1\}//p' "$0"
      exit 0
      ;;
    *)
      echo "unknown option: $argument (see --help)" >&2
      exit 2
      ;;
  esac
done

scripts/install_dependencies.sh test
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target kerul_road kerul_latency kerul_bench >&2

results=build/bench_results.md
{
  printf '### Whole road\n\n'
  build/release/bench/kerul_road "${quick[@]}"
  printf '\n### Latency\n\n'
  build/release/bench/kerul_latency "${latency[@]}"
  printf '\n### Several sensors\n\n'
  build/release/bench/kerul_latency --scale "${scale[@]}"
  printf '\n### Kernels\n\n'
  build/release/bench/kerul_bench "${quick[@]}"
} | tee "$results"

if "$update"; then
  # Everything after the marker is the last run's output.
  marker='<!-- Below: output of ./run_bench.sh --update -->'
  page=docs/performance.md
  grep -qxF "$marker" "$page"
  { awk -v marker="$marker" '{ print } $0 == marker { exit }' "$page" && echo && cat "$results"; } \
    >"$page.new"
  mv "$page.new" "$page"
fi

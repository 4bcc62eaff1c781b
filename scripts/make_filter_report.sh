#!/usr/bin/env bash
# Remakes the figures and pictures of docs/filters.md: the pictures in docs/images, the tables on
# standard output.
#   scripts/make_filter_report.sh [frames of each scene, 10 if left out]
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset release >&2
cmake --build build/release --target truth_report >&2
build/release/tools/truth_report filters --pictures docs/images
build/release/tools/truth_report filters --frames "${1:-10}"

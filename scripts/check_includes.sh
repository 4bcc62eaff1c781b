#!/usr/bin/env bash
# Checks every include of src/ against the order of the rooms: a file includes its own room and rooms
# further down the list, never one above. Prints how many includes lead from which room to which.
#   check_includes.sh
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  "") ;;
  -h | --help)
    sed -n '2,4s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
  *)
    echo "unknown option: $1 (see --help)" >&2
    exit 2
    ;;
esac

# From top to bottom. Rooms on one line may not include each other.
rooms=(
  "process"
  "node"
  "ground neighbours bloom point_calibration frame_end"
  "rows"
  "output source"
  "parser"
  "calibration"
  "lanes config files"
)

find src -name '*.h' -o -name '*.cpp' | xargs awk -v order="$(IFS='|'; echo "${rooms[*]}")" '
  function room_of(path) {
    if (path ~ /^MIPI_reader\/node\/[a-z_]+\//) { split(path, part, "/"); return part[3] }
    if (path ~ /^MIPI_reader\//) { split(path, part, "/"); return part[2] }
    if (path !~ /\//) return "process"
    sub(/\/.*/, "", path)
    return path
  }
  # Headers kept only for their path are a single include.
  function is_door(path) {
    return path ~ /^MIPI_reader\/node\/(packet_calibration|bloom_gains|ground_plane)\.h$/
  }
  BEGIN {
    count = split(order, lines, "|")
    for (i = 1; i <= count; ++i) {
      n = split(lines[i], names, " ")
      for (j = 1; j <= n; ++j) level[names[j]] = i
    }
  }
  /^#include "/ {
    from_path = FILENAME
    sub(/^src\//, "", from_path)
    to_path = $2
    gsub(/"/, "", to_path)
    if (to_path !~ /\//) next  # beside this file
    from = room_of(from_path)
    to = room_of(to_path)
    if (!(from in level) || !(to in level)) {
      print FILENAME ": no such room: " to_path; bad = 1; next
    }
    ++seen
    if (from == to) next
    if (level[to] <= level[from] && !is_door(from_path)) {
      print FILENAME ":" FNR ": " from " must not include " to " (" to_path ")"; bad = 1
    }
    ++arrows[from " -> " to]
  }
  END {
    for (arrow in arrows) printf "%4d  %s\n", arrows[arrow], arrow | "sort -k2"
    close("sort -k2")
    if (seen == 0) { print "no include found"; bad = 1 }
    exit bad
  }'

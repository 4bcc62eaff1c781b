#!/usr/bin/env bash
# Compares the names that the shared library shows with those that its header declares.
#   exported_names.sh NM LIBRARY HEADER
set -euo pipefail
[ $# -eq 3 ] || { sed -n '2,3s/^# \{0,1\}//p' "$0" >&2; exit 2; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
# Without the comments: they name functions too.
sed 's|/\*.*\*/||; /\/\*/,/\*\//d' "$3" | grep -oE 'kerul_lidar_[a-z_]+\(' | tr -d '(' | sort -u >"$work/declared"
"$1" -D --defined-only "$2" | awk '$2 != "A" { sub(/@.*/, "", $3); print $3 }' | sort >"$work/shown"
[ "$(wc -l <"$work/declared")" -ge 10 ] || { echo "hardly a function in $3" >&2; exit 1; }
diff "$work/declared" "$work/shown"
"$1" -D --defined-only "$2" | grep -q ' kerul_lidar_next@@KERUL_LIDAR_1$' ||
  { echo "the names have no version" >&2; exit 1; }

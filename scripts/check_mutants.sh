#!/usr/bin/env bash
# Makes the small changes of scripts/mutants.txt one by one and runs the hand-worked tests that have
# to notice each. Fails when one goes unnoticed, does not compile, or stands for a text that is not
# there exactly once. Needs a configured build/release, builds there what it needs of it.
#   check_mutants.sh               the whole list
#   check_mutants.sh --part K/N    every N-th of it, beginning with the K-th (1..N)
#   check_mutants.sh --today N     the part of this day: all N parts come by in N days
#   check_mutants.sh --grep WORD   the changes that have this word in their line
#   check_mutants.sh --list        only looks for the texts, prints how many there are by folder
# The sources stay as they are: each change is made in a copy below build/mutants.
set -euo pipefail
cd "$(dirname "$0")/.."

words=()
case "${1:-}" in
  "") ;;
  --part) words=(--part "${2%/*}" "${2#*/}") ;;
  --today) words=(--part $((($(date +%s) / 86400) % $2 + 1)) "$2") ;;
  --grep | --list) words=("$@") ;;
  -h | --help)
    sed -n '2,10s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
  *)
    echo "unknown option: $1 (see --help)" >&2
    exit 2
    ;;
esac
exec python3 scripts/check_mutants.py "${words[@]}"

#!/usr/bin/env bash
# Makes the small changes of scripts/mutants.txt one by one in a copy of the sources and runs the
# hand-worked tests that have to notice each. Fails when one goes unnoticed, does not compile, or
# stands for a text that is not there exactly once.
#   check_mutants.sh               the whole list
#   check_mutants.sh --part K/N    every N-th of it, beginning with the K-th (1..N)
#   check_mutants.sh --today N     the part of this day: all N parts come by in N days
#   check_mutants.sh --list        only looks for the texts, prints how many there are by folder
# The copy stands in build/mutants and is kept, so that the next run compiles less.
set -euo pipefail
cd "$(dirname "$0")/.."

part=1
parts=1
list_only=false
case "${1:-}" in
  "") ;;
  --part)
    part="${2%/*}"
    parts="${2#*/}"
    ;;
  --today)
    parts="$2"
    part=$((($(date +%s) / 86400) % parts + 1))
    ;;
  --list) list_only=true ;;
  -h | --help)
    sed -n '2,9s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
  *)
    echo "unknown option: $1 (see --help)" >&2
    exit 2
    ;;
esac

copy=build/mutants
changer=scripts/apply_mutant.py
python3 "$changer" --check
"$list_only" && exit 0

mkdir -p "$copy"
git ls-files -z | xargs -0 cp --parents --update --target-directory="$copy"
# A run that was cut short may have left a change behind.
python3 "$changer" --restore "$copy"
cmake -S "$copy" -B "$copy/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG" >/dev/null

total="$(python3 "$changer" --count)"
bad=0
done_count=0
declare -A noticed_by
for ((number = part; number <= total; number += parts)); do
  IFS=$'\t' read -r program filter what < <(python3 "$changer" --tests "$number")
  python3 "$changer" --apply "$number" "$copy"
  log="$copy/mutant.log"
  if ! cmake --build "$copy/build" -j "$(nproc)" --target "$program" >"$log" 2>&1; then
    verdict="DOES NOT COMPILE (see $log)"
  elif timeout 300 "$copy/build/tests/$program" --gtest_filter="$filter" --gtest_brief=1 \
    >"$log" 2>&1; then
    verdict="NOT NOTICED by $program $filter"
  else
    verdict="noticed by $program"
    noticed_by[$program]=$((${noticed_by[$program]:-0} + 1))
  fi
  python3 "$changer" --restore "$copy"
  [[ $verdict == noticed* ]] || bad=$((bad + 1))
  done_count=$((done_count + 1))
  printf '%3d/%d  %-40s %s\n' "$number" "$total" "$verdict" "$what"
done

echo
echo "$done_count changes made, $bad unnoticed"
for program in "${!noticed_by[@]}"; do
  printf '%5d  %s\n' "${noticed_by[$program]}" "$program"
done
[ "$done_count" -gt 0 ] && [ "$bad" -eq 0 ]

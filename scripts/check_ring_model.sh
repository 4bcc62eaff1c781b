#!/usr/bin/env bash
# Checks models/ring.pml with spin: the protocol must hold in every scenario, and every mutant of it
# must break in the scenario that is named for it. Exit status 0 only then.
#   check_ring_model.sh          about a minute on two idle cores, below 1 GB
#   check_ring_model.sh --long   more packets and more faults as well
set -euo pipefail
cd "$(dirname "$0")/.."
model="$PWD/models/ring.pml"
# Most of the models are explored faster than an optimising compiler translates them.
optimisation=-O0

long=false
case "${1:-}" in
  "") ;;
  --long)
    long=true
    optimisation=-O2
    ;;
  *)
    sed -n '2,5s/^# \{0,1\}//p' "$0"
    [ "$1" = --help ] || [ "$1" = -h ] || exit 2
    exit 0
    ;;
esac

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# Explores one model completely. Prints "holds", "breaks: <assertion>" or "unknown: <why>".
explore() {
  local folder="$1" output
  shift
  mkdir -p "$folder" && cd "$folder"
  if ! spin -a "$@" "$model" >spin.log 2>&1 ||
    ! gcc "$optimisation" -w -DSAFETY -DCOLLAPSE -DMEMLIM=1800 -DVECTORSZ=2048 -o pan pan.c 2>gcc.log; then
    echo "unknown: cannot be built, see spin and gcc"
    return
  fi
  # A search that went too deep or out of memory has not seen everything.
  output="$(./pan -m200000 -w22 -n 2>&1 || true)"
  if grep -q 'assertion violated' <<<"$output"; then
    echo "breaks:$(grep -m1 'assertion violated' <<<"$output" | sed 's/.*violated//; s/ (at depth.*//')"
  elif grep -q 'errors: 0' <<<"$output" &&
    ! grep -Eqi 'search not completed|max search depth|out of memory|truncated' <<<"$output"; then
    echo "holds: $(grep -m1 -o '[0-9.e+]* states, stored' <<<"$output")"
  else
    echo "unknown: $(grep -m1 -E 'pan|error' <<<"$output")"
  fi
}

# expect <holds|breaks> <name> <macros...>: one line, and leaves a file when the result differs.
expect() {
  local wanted="$1" name="$2" result
  shift 2
  result="$(explore "$work/$name" "$@")"
  if [ "${result%%:*}" = "$wanted" ]; then
    printf 'ok    %-28s %s\n' "$name" "$result"
  else
    printf 'FAIL  %-28s expected that it %s; %s\n' "$name" "$wanted" "$result"
    touch "$work/failed"
  fi
  rm -rf "${work:?}/$name"
}
export -f expect explore
export work model optimisation

scenarios=(
  "holds two_readers            -DREADERS=2 -DPACKETS=3"
  "holds two_keep_up            -DREADERS=2 -DPACKETS=3 -DKEEPUP"
  "holds many_rounds            -DREADERS=1 -DPACKETS=7"
  "holds three_slots            -DREADERS=1 -DPACKETS=6 -DSLOTS=3 -DKEEPUP"
  "holds repair                 -DREADERS=1 -DPACKETS=4 -DINTRUSIONS=1"
  "holds repair_keep_up         -DREADERS=1 -DPACKETS=4 -DINTRUSIONS=1 -DKEEPUP"
  "holds two_readers_repair     -DREADERS=2 -DPACKETS=2 -DINTRUSIONS=1 -DKEEPUP"
  "holds restart                -DREADERS=1 -DPACKETS=3 -DRESTART"
  "holds restart_keep_up        -DREADERS=1 -DPACKETS=3 -DRESTART -DKEEPUP"
  "holds two_readers_restart    -DREADERS=2 -DPACKETS=2 -DRESTART -DKEEPUP"
  "holds numbers_begin_again    -DREADERS=1 -DPACKETS=3 -DINPLACE"
  "holds load_by_load           -DREADERS=1 -DPACKETS=3 -DFINE"
  "holds load_by_load_keep_up   -DREADERS=1 -DPACKETS=3 -DFINE -DKEEPUP"
  "holds load_by_load_repair    -DREADERS=1 -DPACKETS=3 -DFINE -DINTRUSIONS=1"
)
mutants=(
  "breaks NO_MARK               -DREADERS=1 -DPACKETS=3"
  "breaks NO_SECOND_LOOK        -DREADERS=1 -DPACKETS=3"
  "breaks NO_STORE_FENCE        -DREADERS=1 -DPACKETS=3"
  "breaks NO_LOAD_FENCE         -DREADERS=1 -DPACKETS=3"
  "breaks PLAIN_PUBLISH         -DREADERS=1 -DPACKETS=3 -DINTRUSIONS=1"
  "breaks PLAIN_FIRST_LOOK      -DREADERS=1 -DPACKETS=3 -DINTRUSIONS=1"
  "breaks EARLY_NUMBER          -DREADERS=1 -DPACKETS=3 -DINTRUSIONS=1"
  "breaks BELIEVED_HEAD         -DREADERS=1 -DPACKETS=4 -DINTRUSIONS=1 -DKEEPUP"
  "breaks NO_RELOOK             -DREADERS=1 -DPACKETS=4 -DINTRUSIONS=1 -DKEEPUP"
  "breaks LEFT_AT_ONCE          -DREADERS=1 -DPACKETS=3 -DRESTART -DKEEPUP"
  "breaks PLAIN_WIPE            -DREADERS=1 -DPACKETS=4 -DINTRUSIONS=1"
  "breaks NO_BOOT_CHECK         -DREADERS=1 -DPACKETS=3 -DINPLACE"
  "breaks BOOT_AFTER_HEAD       -DREADERS=1 -DPACKETS=3 -DINPLACE"
  "breaks BOOT_BEFORE_NUMBER    -DREADERS=1 -DPACKETS=3 -DINPLACE"
)
larger=(
  "holds two_keep_up_on         -DREADERS=2 -DPACKETS=4 -DKEEPUP"
  "holds two_readers_on         -DREADERS=2 -DPACKETS=4"
  "holds two_intrusions         -DREADERS=1 -DPACKETS=4 -DINTRUSIONS=2"
  "holds repair_and_restart     -DREADERS=1 -DPACKETS=3 -DINTRUSIONS=1 -DRESTART"
  "holds numbers_begin_again_on -DREADERS=1 -DPACKETS=4 -DINPLACE"
)
lines=("${scenarios[@]}")
for mutant in "${mutants[@]}"; do
  name="$(awk '{print $2}' <<<"$mutant")"
  lines+=("$mutant -DMUTANT=$name")
done
if "$long"; then lines+=("${larger[@]}"); fi

printf '%s\n' "${lines[@]}" |
  xargs -P "$(nproc)" -d '\n' -I '{}' bash -c 'set -u; expect {}'
if [ -e "$work/failed" ]; then
  echo "the ring's model does not come out as it should" >&2
  exit 1
fi

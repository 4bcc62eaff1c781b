# For a script that sources it: announces the script's steps and prints at its end how long each took.
# shellcheck shell=bash
step_name=""
step_begin=0
step_times=()

end_step() {
  [ -z "$step_name" ] || step_times+=("$(printf '%5d s  %s' $((SECONDS - step_begin)) "$step_name")")
  step_name=""
}

step() {
  end_step
  printf '\n== %s (%d s so far)\n' "$1" "$SECONDS"
  step_name="$1"
  step_begin="$SECONDS"
}

# Runs a check that ends with status 77 when this machine does not permit it; the check says why.
may_be_skipped() {
  local status=0
  "$@" || status=$?
  [ "$status" -ne 77 ] || step_name="$step_name: SKIPPED, in whole or in part, see above"
  [ "$status" -eq 0 ] || [ "$status" -eq 77 ]
}

print_step_times() {
  end_step
  printf '\n'
  printf '%s\n' "${step_times[@]}"
}
trap print_step_times EXIT

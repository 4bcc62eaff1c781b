#!/bin/sh
# Fails when the machine code of a library holds an instruction that rounds a multiply and an add
# only once, or when there is nothing to look at in all of them.
#   no_fused_instruction.sh OBJDUMP LIBRARY...
set -eu
code=$(mktemp)
trap 'rm -f "$code"' EXIT
objdump="$1"
shift
for library; do "$objdump" -d --no-show-raw-insn "$library"; done >"$code"
multiplications=$(grep -cE '\bv?mulps\b' "$code" || true)
if [ "$multiplications" -eq 0 ]; then
  echo "no vector multiplication in $*: is that the node?"
  exit 1
fi
if awk '/file format/ { object = $1 } /[[:space:]]vfn?m(add|sub)/ { print object, $0 }' "$code" |
  grep .; then
  echo "multiply and add are contracted"
  exit 1
fi
echo "none beside $multiplications vector multiplications"

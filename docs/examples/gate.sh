#!/bin/sh
# A gate for a pipeline: fails when a recording has left its ranges.
#   docs/examples/gate.sh RECORDING SETTINGS [PERCENT]
# ZORSTAT is the program, if it is not to be found by its name.
set -u
"${ZORSTAT:-zorstat}" replay "$1" --config "$2" --fail-outside "${3:-1}" -o /dev/null
case $? in
  0) echo "gate: $1 is within its ranges" ;;
  3) echo "gate: $1 has left its ranges" >&2 && exit 1 ;;
  *) echo "gate: $1 could not be judged" >&2 && exit 2 ;;
esac

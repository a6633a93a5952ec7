#!/bin/sh
# Appends a line for each departed instance to a file. In a settings file:
#   on-departure = ["docs/examples/departed.sh", "departed.log"]
set -eu
jq -r '[(.time | todate), .host, .group, .object, .instance,
  if .percentiles then "median \(.percentiles[4])" else empty end,
  if .low then "learnt \(.low):\(.high), \(.outside) outside" else empty end,
  if .start then "range \(.start):\(.last), \(.below + .above) outside" else empty end] | join("  ")' >>"$1"

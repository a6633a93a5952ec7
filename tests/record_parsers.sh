#!/bin/sh
# The example parsers agree on all records of the recorded polls, and give the figures that stand in them.
#   tests/record_parsers.sh ZORSTAT SOURCE_DIRECTORY
set -eu
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
for name in net disk cpu; do
  "$1" replay "$2/data/$name.csv" --config "$2/data/$name.toml" --headers >"$dir/records" 2>/dev/null
  awk -f "$2/docs/examples/parse_records.awk" "$dir/records" >"$dir/$name.awk"
  python3 "$2/docs/examples/parse_records.py" <"$dir/records" >"$dir/$name.python"
  diff "$dir/$name.awk" "$dir/$name.python"
  test "$(grep -c '^[a-z]' "$dir/records")" -eq "$(wc -l <"$dir/$name.awk")"
done
tab=$(printf '\t')
for row in 'summary net 1795382197 rx_bytes eth0 59 10881.118' 'baseline cpu 1795382807 user cpu 60 5.000'; do
  grep -qx "$(echo "$row" | sed "s/ /$tab/g")" "$dir"/*.awk || { echo "missing: $row" >&2; exit 1; }
done
printf 'net-summary: 1, rx, eth0, 0\r\n' | awk -f "$2/docs/examples/parse_records.awk" | grep -q "0${tab}-$"
for broken in 'net-summary: 1' 'net-sum: 1, rx, eth0, 0' 'net-summary: 1, rx, eth0, 3, 4'; do
  if echo "$broken" | awk -f "$2/docs/examples/parse_records.awk" >"$dir/out" 2>&1 ||
    echo "$broken" | python3 "$2/docs/examples/parse_records.py" >"$dir/out" 2>&1; then
    echo "taken: $broken" >&2
    exit 1
  fi
done

#!/bin/sh
# The examples of alerts do what they say.
#   tests/ways_out/alerts_test.sh ZORSTAT SOURCE_DIRECTORY
set -eu
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
export ZORSTAT="$1"
cd "$2"
docs/examples/gate.sh data/cpu.csv data/cpu.toml 45
for expected in '1 2' '2 -1'; do
  status=0
  docs/examples/gate.sh data/cpu.csv data/cpu.toml "${expected#* }" 2>"$dir/error" || status=$?
  test "$status" = "${expected% *}" || { cat "$dir/error" >&2; exit 1; }
done
printf '   8  0  sda 1 2 3 4 5 6 7 8 42 10 11\n   8  1  sdb 1 2 3 4 5 6 7 8 3 10 11\n' >"$dir/diskstats"
cat >"$dir/disk.toml" <<END
on-departure = ["docs/examples/departed.sh", "$dir/departed log"]
clear = 1
host = "h"
[objects.in_flight]
range = [0, 31]
END
"$1" live disk --proc "$dir" --count 1 --config "$dir/disk.toml" -o /dev/null
test "$(cut -d' ' -f3- "$dir/departed log")" = "h  disk  in_flight  sda  median 42  range 0:31, 1 outside"

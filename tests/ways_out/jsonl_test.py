"""Lines of --format jsonl against their schema, the samples, and the records of the same run:
jsonl_test.py ZORSTAT SCHEMA"""

import csv
import json
import subprocess
import sys
from decimal import Decimal

import jsonschema

ZORSTAT, SCHEMA = sys.argv[1:]
NAMES = [
    'quote " and \\ back', "{日本, 'e\u0301'}".replace(",", ";"),
    "👩‍👩‍👧\u2028\u202e<b>", "n" * 10000]
RANGES = {"small": (0, 6), "wide": (-1000, 998), "huge": (0, 2**64 - 2)}
POLLS, CLEAR, LEARNING = 40, 5, 8


def value(column, poll, row):
    if column == "small":
        return (poll * 7 + row * 3) % 9
    if column == "wide":
        return (poll * 811 + row * 101) % 2300 - 1100
    return 2**64 - 1 if row == 0 else (poll * 0x9E3779B97F4A7C15 + row) % 2**64


def run(*options):
    rows = "".join(
        f"{10 * p + 10},{name},{','.join(str(value(c, p, r)) for c in RANGES)}\n"
        for p in range(POLLS) for r, name in enumerate(NAMES)
    )
    settings = f"clear = {CLEAR}\nbuckets = 13\nstatistics = ['percentile', 'baseline']\n" + "".join(
        f"[objects.{c}]\nrange = ['{low}', '{high}']\nclear = {LEARNING}\n" for c, (low, high) in RANGES.items()
    )
    with open("settings.toml", "w", encoding="utf-8") as file:
        file.write(settings)
    result = subprocess.run([ZORSTAT, "replay", "-", "--config", "settings.toml", *options], check=True,
                            input="time,key,small:i32,wide:i64,huge:u64\n" + rows, capture_output=True, text=True)
    return result.stdout.split("\n")[:-1]  # and nowhere else, as splitlines() does


def check_line(line):
    column, poll = line["object"], line["time"] // 10 - 1
    samples = [value(column, p, NAMES.index(line["instance"])) for p in range(poll - CLEAR + 1, poll + 1)]
    fits = sum(samples) < 2**64  # what does not is not counted, and then its distribution has more than its summary
    if fits:
        assert [line[f] for f in ("samples", "min", "max", "sum", "refused")] == [
            CLEAR, min(samples), max(samples), sum(samples), 0], line
        assert line["percentiles"][0] == min(samples) and line["percentiles"][8] == max(samples), line
        assert line["percentiles"] == sorted(line["percentiles"]), line
    else:
        assert line["samples"] + line["refused"] == CLEAR and line["sum"] < 2**64, line
    start, last, n = line["start"], line["last"], len(line["buckets"])
    assert (start, last, n) == (*RANGES[column], 7 if column == "small" else 13), line
    edges = [start - (-i * (last + 1 - start) // n) for i in range(n + 1)]
    assert line["buckets"] == [sum(a <= s < b for s in samples) for a, b in zip(edges, edges[1:])], line
    assert (line["below"], line["above"]) == (sum(s < start for s in samples), sum(s > last for s in samples)), line
    if line["low"] is not None and poll - CLEAR >= LEARNING:
        assert line["outside"] == sum(not line["low"] <= s <= line["high"] for s in samples), line


lines = [json.loads(line, parse_float=Decimal) for line in run("--format", "jsonl", "--host", NAMES[0])]
validator = jsonschema.Draft202012Validator(json.load(open(SCHEMA, encoding="utf-8")))
assert {line["host"] for line in lines} == {NAMES[0]}
for line in lines:
    validator.validate(line)
    check_line(line)
assert any(line["max"] == 2**64 - 1 for line in lines) and any(line["low"] is not None for line in lines)

records = [line.split(", ") for line in run() if line.startswith("stdin-summary")]
as_records = [[str(line[f]) for f in ("object", "instance", "samples", "min", "max")] for line in lines]
assert [record[1:6] for record in records] == as_records

table = list(csv.DictReader(run("--format", "csv", "--host", NAMES[0])))
fields = ("time", "host", "group", "object", "instance", "samples", "min", "max", "outside")
assert [[row[f] for f in fields] for row in table] == [[str(line[f]) for f in fields] for line in lines]

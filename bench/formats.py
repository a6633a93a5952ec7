#!/usr/bin/env python3
"""Rows per second of zorstat's formats beside those of record lines: formats.py ZORSTAT [ROUNDS]

A row is an instance's interval: a line of JSON or CSV, or two records. All intervals are one poll long, so that the
time is that of the way out and not of counting; reading the polls is in it. The formats take turns round by round;
the figures are medians."""

import os
import random
import statistics
import subprocess
import sys
import tempfile
import time

INSTANCES, COLUMNS, POLLS = 1000, 5, 40
FORMATS = ("records", "csv", "table", "jsonl")


def write_polls(path):
    values = random.Random(1)
    with open(path, "w", encoding="ascii") as file:
        file.write("time,port," + ",".join(f"counter_{i}" for i in range(COLUMNS)) + "\n")
        for poll in range(POLLS):
            for row in range(INSTANCES):
                counts = ",".join(str(values.randrange(1_000_000)) for _ in range(COLUMNS))
                port = f"GigabitEthernet{row // 1000:03}/{row % 1000:05}"
                file.write(f"{1_700_000_000 + 10 * poll},{port},{counts}\n")


def seconds(command):
    start = time.monotonic()
    subprocess.run(command, check=True)
    return time.monotonic() - start


def main(zorstat, rounds=7):
    with tempfile.TemporaryDirectory() as directory:
        polls, output = os.path.join(directory, "polls.csv"), os.path.join(directory, "output")
        write_polls(polls)
        times, sizes = {name: [] for name in FORMATS}, {}
        for _ in range(int(rounds)):
            for name in FORMATS:
                options = ["--range", "0:999999", "--clear", "1", "--format", name, "-o", output]
                times[name].append(seconds([zorstat, "replay", polls, *options]))
                sizes[name] = os.path.getsize(output)
    rows = INSTANCES * COLUMNS * POLLS
    print(f"{'format':8} {'rows/s':>10} {'bytes/row':>10} {'time / records':>15}")
    of_records = statistics.median(times["records"])
    for name in FORMATS:
        median = statistics.median(times[name])
        print(f"{name:8} {rows / median:10,.0f} {sizes[name] / rows:10.0f} {median / of_records:15.2f}")


main(*sys.argv[1:])

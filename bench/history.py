#!/usr/bin/python3
"""What a history costs: rows per second that zorstat writes, their size, and the time of a query over all of them.
Medians of three runs, or the figures of one.

    bench/history.py ZORSTAT [--quick]
"""

import os
import random
import statistics
import subprocess
import sys
import tempfile
import time

ZORSTAT = os.path.abspath(sys.argv[1])
POLLS, INSTANCES, CLEAR, RUNS = 2880, 100, 2, 1 if "--quick" in sys.argv else 3
ROWS = POLLS // CLEAR * INSTANCES
REPLAY = ["replay", "polls.csv", "--range", "0:99999", "--clear", str(CLEAR), "--host", "h", "-o"]
QUERY = ["--object", "load"]


def seconds(command, *files):
    times = []
    for _ in range(RUNS):
        for file in files:
            if os.path.exists(file):
                os.remove(file)
        before = time.perf_counter()
        subprocess.run([ZORSTAT, *command], check=True, stdout=subprocess.DEVNULL)
        times.append(time.perf_counter() - before)
    return statistics.median(times)


random.seed(1)
with tempfile.TemporaryDirectory(dir=".") as directory:
    os.chdir(directory)
    with open("polls.csv", "w", encoding="utf-8") as polls:
        polls.write("time,key,load\n")
        for poll in range(POLLS):
            for instance in range(INSTANCES):
                load = int(min(99999, random.expovariate(1 / 9000)))
                polls.write(f"{1795300000 + 10 * poll},i{instance},{load}\n")
    print(f"{ROWS} intervals of 100 buckets, {INSTANCES} at a time")
    counting = seconds([*REPLAY, "/dev/null"])
    for what, command, file in [
        ("--format jsonl", [*REPLAY, "lines.jsonl", "--format", "jsonl"], "lines.jsonl"),
        ("--sqlite", [*REPLAY, "/dev/null", "--sqlite", "history.db"], "history.db"),
    ]:
        taken = seconds(command, file)
        size = os.path.getsize(file)
        print(f"{what:15} {ROWS / taken:9.0f} rows/s, {taken - counting:.2f} s beside counting")
        print(f"{'  size':15} {size / ROWS:9.0f} bytes/row")
        print(f"{'  query':15} {seconds(['query', file, *QUERY]):9.2f} s")
        print(f"{'  by instance':15} {seconds(['query', file, *QUERY, '--by', 'instance']):9.2f} s")
    os.chdir("..")

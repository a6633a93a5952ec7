#!/usr/bin/python3
"""How fast zorstat and others read a poll file: MB/s, medians of runs that take turns.

    bench/reading.py ZORSTAT [--quick]

Others have less to do: wc counts lines, awk adds up a column, SQLite and PostgreSQL load a table. PostgreSQL is a
private server without fsync, where it is installed. Of every run it is checked that all was read."""

import contextlib
import glob
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from dataclasses import dataclass

POLLS, INSTANCES, COLUMNS, CLEAR = 300, 1000, 10, 60
ROWS = POLLS * INSTANCES
NAMES = [f"counter_{i}" for i in range(COLUMNS)]
RUNS = 3 if "--quick" in sys.argv else 7
NOBODY = 65534 if os.geteuid() == 0 else os.geteuid()  # PostgreSQL refuses to run as root


@dataclass
class Reader:
    name: str
    command: list[str]
    has_read: Callable[[str], bool]  # of what it printed
    prepare: Callable[[], object] = lambda: None


def write_polls():
    """Returns the sum of the first counter."""
    values, total = random.Random(1), 0
    with open("polls.csv", "w", encoding="ascii") as file:
        file.write(f"time,port,{','.join(NAMES)}\n")
        for row in range(ROWS):
            poll, port = divmod(row, INSTANCES)
            counts = values.choices(range(1_000_000), k=COLUMNS)
            total += counts[0]
            file.write(f"{1_700_000_000 + 10 * poll},GigabitEthernet000/{port:05},{','.join(map(str, counts))}\n")
    return total


def told(*command, **more):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **more).stdout


def zorstats(zorstat):
    def reader(columns, *options):
        def has_written(_):
            with open("records", encoding="ascii") as file:  # summary and percentiles of each interval
                return sum(1 for _ in file) == 2 * columns * ROWS // CLEAR

        command = [zorstat, "replay", "polls.csv", "--range", "0:999999", "--clear", str(CLEAR), "-o", "records"]
        return Reader(" ".join(("zorstat replay", *options)), [*command, *options], has_written)

    yield reader(COLUMNS)
    if "--cores" in told(zorstat, "replay", "--help"):
        yield reader(COLUMNS, "--cores", "1")
    yield reader(1, "--objects", NAMES[0])


def tools(total):
    yield Reader("wc -l", ["wc", "-l", "polls.csv"], lambda out: int(out.split()[0]) == ROWS + 1)
    for awk in filter(shutil.which, ("mawk", "gawk")):
        program = [awk, "-F,", "{s+=$3} END{print s}", "polls.csv"]
        yield Reader(f"{awk} {program[2]}", program, lambda out: abs(float(out) / total - 1) < 1e-5)
    if shutil.which("sqlite3"):
        yield Reader(
            "sqlite3 .import --csv", ["sqlite3", "polls.db", ".import --csv polls.csv polls"],
            lambda _: int(told("sqlite3", "polls.db", "SELECT count(*) FROM polls")) == ROWS,
            lambda: os.path.exists("polls.db") and os.remove("polls.db"))


@contextlib.contextmanager
def postgresql():
    installed = sorted(glob.glob("/usr/lib/postgresql/*/bin/postgres"))
    if not installed:
        print("PostgreSQL is not installed: left out.", file=sys.stderr)
        yield []
        return
    here, programs = os.getcwd(), os.path.dirname(installed[-1])
    os.mkdir("postgres")
    os.chown("postgres", NOBODY, -1)
    os.environ |= {"HOME": here, "PGHOST": f"{here}/postgres", "PGUSER": "zor", "PGDATABASE": "postgres"}
    told(f"{programs}/initdb", "-D", "postgres/data", "-A", "trust", "-U", "zor", "-N", user=NOBODY)
    options = ["-k", os.environ["PGHOST"], "-c", "listen_addresses=", "-c", "fsync=off"]
    with subprocess.Popen([f"{programs}/postgres", "-D", "postgres/data", *options], user=NOBODY,
                          stderr=subprocess.DEVNULL) as server:
        try:
            while server.poll() is None and subprocess.run(["pg_isready", "-q"], check=False).returncode != 0:
                time.sleep(0.1)
            psql = ["psql", "-X", "-q", "-v", "ON_ERROR_STOP=1", "-c"]
            told(*psql, f"CREATE TABLE polls (time bigint, port text, {', '.join(f'{n} bigint' for n in NAMES)})")
            yield [Reader(
                "psql \\copy", [*psql, "\\copy polls FROM 'polls.csv' CSV HEADER"],
                lambda _: int(told(*psql[:-1], "-t", "-c", "SELECT count(*) FROM polls")) == ROWS,
                lambda: told(*psql, "TRUNCATE polls"))]
        finally:
            server.terminate()


def seconds(reader):
    reader.prepare()
    start = time.perf_counter()
    printed = told(*reader.command)
    taken = time.perf_counter() - start
    if not reader.has_read(printed):
        sys.exit(f"{reader.name}: did not read all")
    return taken


def main():
    zorstat = os.path.abspath(sys.argv[1])
    os.environ["LC_ALL"] = "C"
    with tempfile.TemporaryDirectory() as directory:
        os.chdir(directory)
        os.chmod(".", 0o755)  # the server's user passes through it
        total = write_polls()
        with postgresql() as servers:
            readers = [*zorstats(zorstat), *tools(total), *servers]
            runs = [[seconds(reader) for reader in readers] for _ in range(RUNS)]
        size = os.path.getsize("polls.csv") / 1e6
        os.chdir("/")
    print(f"{f'reading {POLLS} polls of {INSTANCES} x {COLUMNS}, {size:.0f} MB':40} {'MB/s':>9} {'/ zorstat':>10}")
    speeds = [size / statistics.median(times) for times in zip(*runs)]
    for reader, speed in zip(readers, speeds):
        print(f"{reader.name:40} {speed:9.1f} {speed / speeds[0]:8.2f} x")


main()

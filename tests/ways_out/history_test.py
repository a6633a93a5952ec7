"""Histories in SQLite, JSON Lines and PostgreSQL against each other and the samples themselves:
history_test.py ZORSTAT SQL_DIRECTORY [DIRECTORY_OF_INITDB]"""

import csv
import os
import random
import resource
import sqlite3
import subprocess
import sys
import tempfile
import time
from multiprocessing.pool import ThreadPool

ZORSTAT, SQL, *POSTGRES = sys.argv[1:]
NOBODY = 65534 if os.geteuid() == 0 else os.geteuid()
HOSTS, NAMES = ["web1", "web'2", "db \\ 1", 'db "2"'], ['it\'s "x\\y" 😀', "\\N", "i2"]
POINTS = [0, 0.13, 2.28, 15.87, 50, 84.13, 97.72, 99.87, 100]
LARGEST, WIDTH = str(2**64 - 1), 1000
random.seed(7)


def run(*command, status=0, text=None, **more):
    result = subprocess.run(command, input=text, capture_output=True, text=True, check=False, **more)
    assert result.returncode == status, (command, result)
    return result.stdout if status == 0 else result.stderr


def zorstat(*words, **more):
    return run(ZORSTAT, *words, **more)


def rows(database, query="SELECT * FROM zorstat ORDER BY host, object, instance, time"):
    connection = sqlite3.connect(database)
    try:
        return connection.execute(query).fetchall()
    finally:
        connection.close()


def polls(count, instances):
    samples = [[int(min(99999, random.expovariate(1 / 9000))) for _ in instances] for _ in range(count)]
    lines = [f"{1795300000 + 10 * p},{name},{value},{'' if p % 30 else LARGEST}\n"
             for p, poll in enumerate(samples) for name, value in zip(instances, poll)]
    return "time,key,load,big\n" + "".join(lines), sum(samples, [])


def table(text, delimiter=","):
    return list(csv.DictReader(text.splitlines(), delimiter=delimiter))


def nine_of_query(*words):
    (line,) = table(zorstat("query", *words, "--format", "csv", "--points", ",".join(map(str, POINTS))))
    return [float(line[str(p)]) for p in POINTS]


directory = tempfile.TemporaryDirectory()
os.chdir(directory.name)
os.chmod(".", 0o777)
FILL = ["--dg", "g", "--objects", "load,big", "--range", "0:99999", "--clear", "30"]
pooled, inputs, first_rows = [], {}, None
for host in HOSTS:
    inputs[host], samples = polls(300, NAMES)
    pooled += samples
for _ in range(2):  # the second time changes nothing
    fill = ["replay", "-", *FILL, "--sqlite", "fleet.db", "--host"]
    with ThreadPool(4) as pool:
        pool.map(lambda host: zorstat(*fill, host, text=inputs[host]), HOSTS)
    first_rows = first_rows or rows("fleet.db")
    assert rows("fleet.db") == first_rows and len(first_rows) == 4 * 3 * 2 * 10
    told = [zorstat("replay", "-", *FILL, "--format", "jsonl", "--host", h, text=t) for h, t in inputs.items()]
    lines = "".join(told)
    with open("fleet.jsonl", "a", encoding="utf-8") as file:
        file.write(lines)
    run("sqlite3", "-bail", "lines.db", f".read {SQL}/sqlite.sql", f".read {SQL}/sqlite_import.sql", text=lines)
    assert rows("lines.db") == first_rows
assert rows("fleet.db", "SELECT max(max) FROM zorstat") == [(LARGEST,)]
assert table(zorstat("query", "fleet.db", "--object", "big", "--format", "csv"))[0]["max"] == LARGEST

# Percentiles over all hosts: each way the same, and within a bucket of those of the samples.
histories = ["fleet.db"], ["fleet.jsonl"], ["lines.db", "fleet.jsonl"]
answers = [nine_of_query(*files, "--object", "load") for files in histories]
settings = [f".param set :{name} {value}" for name, value in [("object", "load"), ("from", 0), ("to", 1e12)]]
settings += [f".read {SQL}/sqlite_percentile.sql"]
told = table(run("sqlite3", "-csv", "-header", "fleet.db", ".param init", *settings))
answers.append([float(line["value"]) for line in told])
if POSTGRES:
    os.mkdir("postgres")
    os.chown("postgres", NOBODY, -1)
    here = os.getcwd()
    os.environ |= {"HOME": here, "PGHOST": f"{here}/postgres", "PGUSER": "zor", "PGDATABASE": "postgres"}
    run(f"{POSTGRES[0]}/initdb", "-D", "postgres/data", "-A", "trust", "-U", "zor", "-N", "-E", "UTF8", user=NOBODY)
    with subprocess.Popen(
        [f"{POSTGRES[0]}/postgres", "-D", "postgres/data", "-k", os.environ["PGHOST"], "-c", "listen_addresses=",
         "-c", "fsync=off"], user=NOBODY, stderr=subprocess.DEVNULL) as server:
        psql = ["psql", "-X", "--csv", "-v", "ON_ERROR_STOP=1"]
        try:
            for _ in range(100):
                if subprocess.run(["pg_isready", "-q"], check=False).returncode == 0:
                    break
                time.sleep(0.1)
            run(*psql, "-f", f"{SQL}/postgresql.sql")
            copy = "\\copy zorstat_line FROM 'fleet.jsonl' CSV QUOTE E'\\x01' DELIMITER E'\\x02'"
            for changed in 240, 0:
                told = run(*psql, "-1", "-t", "-c", copy, "-c", "SELECT zorstat_import()")
                assert told == f"COPY 480\n{changed}\n", told
            assert run(*psql, "-t", "-c", "SELECT max(max) FROM zorstat").strip() == LARGEST
            names = run(*psql, "-t", "-c", "SELECT DISTINCT host, instance FROM zorstat")
            assert set(map(tuple, csv.reader(names.splitlines()))) == {(h, n) for h in HOSTS for n in NAMES}
            variables = [w for v in ("object=load", "from=-infinity", "to=infinity") for w in ("-v", v)]
            told = table(run(*psql, *variables, "-f", f"{SQL}/postgresql_percentile.sql"))
            answers.append([float(line["value"]) for line in told])
            for different in "sum(x) FROM (VALUES ('{1,2}'::int[]), ('{1}'))", "same(x) FROM (VALUES (1), (2))":
                error = run(*psql, "-c", f"SELECT zorstat_{different} AS t(x)", status=1)
                assert "cannot be added" in error, error
        finally:
            server.terminate()
pooled.sort()
for point, *values in zip(POINTS, *answers):
    rank = point / 100 * (len(pooled) - 1)
    low, high = pooled[int(rank)], pooled[min(int(rank) + 1, len(pooled) - 1)]
    assert max(values) - min(values) <= 1, (point, values)
    assert abs(values[0] - low - (high - low) * (rank % 1)) <= WIDTH, (point, values, low, high)

# What is asked, and what cannot be added.
OTHER = ["--buckets", "50", "--host", "b", "--sqlite", "fleet.db", "-o", "records"]
zorstat("replay", "-", *FILL, *OTHER, text=inputs["web1"])
for words, lines, error in [
    ([], 2, None), (["--instance", "i2"], 2, None), (["--host", "b"], 1, None), (["--by", "host"], 5, None),
    (["--by", "hour", "--host", "b"], 2, None), (["--to", "1795300300", "--host", "b"], 1, None),
    (["--from", "2026-11-21 18:00"], 2, None), (["--from", "-1h"], 0, "no samples of load in this time"),
    (["--host", "x"], 0, "expected b, "), (["--instance", "x"], 0, "expected \\N, i2 or it's"),
    (["--from", "2026-02-30"], 0, "expected a time"), (["--points", "101"], 0, "expected per cent"),
]:
    command = [ZORSTAT, "query", "fleet.db", "--object", "load", "--format", "jsonl", *words]
    told = subprocess.run(command, capture_output=True, text=True, check=False, env={"TZ": "UTC"})
    assert told.stdout.count("\n") == lines and (error or "") in told.stderr, (words, told)
    assert ("stand apart" in told.stderr) == ("b" not in words and not error), (words, told)

# A run that is killed leaves whole intervals.
text, samples = polls(1000, [f"i{i}" for i in range(20)])
with open("many.csv", "w", encoding="utf-8") as file:
    file.write(text)
command = ["replay", "many.csv", "--clear", "2", "-o", "records", "--sqlite", "killed.db", "--host"]
start = time.monotonic()
zorstat(*command, "whole")
span = time.monotonic() - start
for i in range(100):
    with subprocess.Popen([ZORSTAT, *command, str(i)], stderr=subprocess.DEVNULL) as victim:
        time.sleep(random.uniform(0, span / 5))
        victim.kill()
    assert rows("killed.db", "PRAGMA quick_check") == [("ok",)]
times = "SELECT count(*) AS n FROM zorstat GROUP BY host, time"
assert rows("killed.db", f"SELECT DISTINCT n FROM ({times})") == [(40,)]
whole = rows("killed.db", "SELECT count(DISTINCT time) FROM zorstat GROUP BY host")
assert len(whole) > 20 and sum(n < 500 for (n,) in whole) > 20, whole  # or nothing was interrupted

# What cannot be written to: one line, and nothing that was there is lost.
def state(path):
    """Without opening it, which would undo the lock."""
    return os.path.exists(path) and (os.stat(path).st_size, os.stat(path).st_mtime_ns)


rows("other.db", "CREATE TABLE t(x)")
with open("fleet.db", "rb") as file:
    old = file.read()
with open("newer.db", "wb") as file:
    file.write(old[:63] + b"\x09" + old[64:])  # where user_version stands
with open("text.db", "w", encoding="utf-8") as file:
    file.write("time,key\n" * 100)
lock = sqlite3.connect("lines.db", isolation_level=None)
lock.execute("BEGIN IMMEDIATE")
os.chmod("killed.db", 0o444)
def limit_files():
    resource.setrlimit(resource.RLIMIT_FSIZE, (len(old) + 100000,) * 2)


for database, expected, more in [
    ("text.db", "is not a database", {}), ("other.db", "is a database of another program", {}),
    ("newer.db", "is a history of version 9", {}), ("none/x.db", "cannot open: no such file", {}),
    ("lines.db", "is locked by another program", {}), ("killed.db", "read-only", {"user": NOBODY}),
    ("fleet.db", "cannot read or write: ", {"preexec_fn": limit_files}),
]:
    before = state(database)
    error = zorstat("replay", "many.csv", "--clear", "2", "--sqlite", database, status=1, **more)
    assert expected in error and error.count("\n") == 1 and f"{database}: " in error, (database, error)
    assert database == "fleet.db" or state(database) == before, database
assert set(first_rows) < set(rows("fleet.db")) and rows("fleet.db", "PRAGMA integrity_check") == [("ok",)]

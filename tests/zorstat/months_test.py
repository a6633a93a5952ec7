"""zorstat live over days or months, whose clock, counters and accidents are made up here: what the counters have
counted is in the records, once. months_test.py ZORSTAT FAULTS DAYS"""

import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import time
from collections import Counter

ZORSTAT, FAULTS = map(os.path.abspath, sys.argv[1:3])
DAYS = int(sys.argv[3])
STEP, CLEAR, EXPIRE = 10, 360, 2  # seconds, polls, intervals
COLUMNS = ("rx_bytes", "tx_bytes")


class Machine:
    """Interfaces and their counters, which begin anew at a reboot; one stays, others come and go."""

    def __init__(self):
        self.random = random.Random(1)
        self.counters = {}
        self.boot()

    def boot(self):
        self.counters = {"eth0": [0, 0]}
        os.makedirs("proc/net", exist_ok=True)
        os.makedirs("proc/sys/kernel/random", exist_ok=True)
        with open("proc/sys/kernel/random/boot_id", "w", encoding="ascii") as file:
            file.write(f"{self.random.random()}\n")

    def go_on(self):
        choose = self.random
        if choose.random() < 0.002:
            self.counters[f"veth{choose.randrange(30)}"] = [0, 0]  # made, or made anew
        if choose.random() < 0.002 and len(self.counters) > 1:
            del self.counters[choose.choice(list(self.counters)[1:])]
        for counter in self.counters.values():
            for i in range(len(COLUMNS)):
                counter[i] += choose.randrange(100_000)
        with open("proc/net/dev", "w", encoding="ascii") as file:
            file.write("".join(f"{name}: {rx} 1 1 1 1 1 1 1 {tx} 1 1 1 1 1 1 1\n"
                               for name, (rx, tx) in self.counters.items()))


class Ledger:
    """What the samples of a run come to, by interface and column: as the difference from poll to poll, or the value
    where it began anew."""

    def __init__(self):
        self.last, self.seen = {}, {}
        self.interval, self.polls = 1, 0
        self.samples, self.sums, self.resets = Counter(), Counter(), Counter()

    def poll(self, counters):
        for name, values in counters.items():
            for column, value in zip(COLUMNS, values):
                key = name, column
                if key in self.last:
                    is_anew = value < self.last[key]
                    self.resets[column] += is_anew
                    self.samples[key] += 1
                    self.sums[key] += value if is_anew else value - self.last[key]
                self.last[key] = value
            self.seen[name] = self.interval
        self.polls += 1
        if self.polls % CLEAR == 0:
            self.end_interval()

    def end_interval(self):
        self.interval += 1
        for name in [n for n, seen in self.seen.items() if self.interval - seen > EXPIRE]:
            del self.seen[name]
            for column in COLUMNS:
                del self.last[name, column]

    def boot(self):
        for (_, column), value in self.last.items():
            self.resets[column] += value != 0
        self.last = dict.fromkeys(self.last, 0)


class Run:
    """The program, which stops at each wait until it is told to go on."""

    def __init__(self, name, clear, *options):
        self.name, self.options = name, ("--clear", str(clear), *options)
        self.process, self.told, self.answer, self.notes = None, None, None, ""

    def start(self):
        told, to_world = os.pipe()
        from_world, answer = os.pipe()
        environment = dict(os.environ, LD_PRELOAD=FAULTS, HASTE="", WORLD=f"{to_world},{from_world}")
        self.process = subprocess.Popen(
            [ZORSTAT, "live", "net", "--proc", "proc", "--objects", ",".join(COLUMNS), "--expire", str(EXPIRE),
             "--state", self.name + ".state", "-o", self.name + ".txt", *self.options],
            stderr=subprocess.PIPE, text=True, env=environment, pass_fds=(to_world, from_world))
        os.close(to_world)
        os.close(from_world)
        self.told, self.answer = told, answer

    def waits(self):
        return os.read(self.told, 8) != b""

    def go_on(self):
        os.write(self.answer, b".")

    def end(self, number=signal.SIGTERM):
        self.process.send_signal(number)
        if number != signal.SIGKILL:
            self.go_on()
        notes = self.process.communicate(timeout=60)[1]
        os.close(self.told)
        os.close(self.answer)
        self.notes += notes
        return notes

    def memory(self):
        with open(f"/proc/{self.process.pid}/statm", encoding="ascii") as file:
            return int(file.read().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def samples_in(paths):
    """Samples and sums by interface and column, of records or JSON Lines."""
    samples, sums = Counter(), Counter()
    for path in paths:
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith("{"):
                    row = json.loads(line)
                    key, count, total = (row["instance"], row["object"]), row["samples"], row.get("sum", 0)
                elif "-summary: " in line:
                    _, column, name, count, *figures = line.strip().split(", ")
                    key, count = (name, column), int(count)
                    average = int(figures[-1].replace(".", "")) if count else 0  # thousandths, rounded down
                    total = -(-average * count // 1000)
                else:
                    continue
                samples[key] += count
                sums[key] += total
    return samples, sums


def months():
    """Restarts, a reboot in between, and a new file each day."""
    machine, ledger, choose = Machine(), Ledger(), random.Random(2)
    runs = [Run("records", CLEAR, "--format", "records"), Run("lines", CLEAR, "--format", "jsonl")]
    files = {run.name: [] for run in runs}
    memory, began = [], time.monotonic()
    polls, reboot, restarts = DAYS * 86400 // STEP, DAYS * 86400 // STEP * 2 // 5, 0
    for poll in range(polls):
        machine.go_on()
        ledger.poll(machine.counters)
        for run in runs:
            run.go_on() if run.process else run.start()
        for run in runs:
            assert run.waits(), run.process.communicate()
        if poll % 8640 == 8639:
            memory.append([run.memory() for run in runs])
            for run in runs:
                files[run.name].append(f"{run.name}-{poll}.txt")
                os.rename(run.name + ".txt", files[run.name][-1])
                run.process.send_signal(signal.SIGHUP)
        if poll == reboot or choose.random() < 1 / 20_000:
            restarts += 1
            for run in runs:
                notes = run.end()
                assert "cut" not in notes and "afresh" not in notes and run.process.returncode == 0, notes
                run.process = None
            if poll == reboot:
                machine.boot()
                ledger.boot()
    for run in runs:
        run.end()
        assert samples_in(files[run.name]) == (+ledger.samples, +ledger.sums), run.name
        for column in COLUMNS:
            assert f"{column} {ledger.resets[column]}" in run.notes.split("counter resets: ")[-1], run.notes
    grown = [max(now, 1) / before for before, now in zip(memory[len(memory) // 3], memory[-1])]
    assert max(grown) < 1.05, memory
    print(f"{polls} polls in {time.monotonic() - began:.0f} s: {sum(ledger.samples.values())} samples in records, "
          f"and in JSON Lines; {len(ledger.samples) // 2} interfaces, {sum(ledger.resets.values())} resets, "
          f"{restarts} restarts, {len(memory)} files; {memory[-1]} bytes of memory, {grown} of those after a third")


def kills(times):
    """Killed at any moment, the run goes on from its last state: no counter counts twice, and none is lost."""
    machine, choose = Machine(), random.Random(3)
    run, cut = Run("killed", 2), 0
    machine.go_on()
    first = list(machine.counters["eth0"])
    for left in range(times, -1, -1):
        run.start()
        polls = choose.randrange(1, 30)
        size = None
        while run.waits():
            polls -= 1
            before, size = size, os.path.getsize("killed.txt")
            if left == 0 and before is not None and size > before:
                break
            machine.go_on()
            run.go_on()
            if polls == 0 and left != 0:
                time.sleep(choose.random() * 0.0005)
                break
        notes = run.end(signal.SIGTERM if left == 0 else signal.SIGKILL)
        cut += "bytes cut" in notes
    sums = samples_in(["killed.txt"])[1]
    for i, column in enumerate(COLUMNS):
        assert sums["eth0", column] == machine.counters["eth0"][i] - first[i], (column, sums)
    print(f"{times} kills, after {cut} of which a file was cut")


with tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None) as directory:
    os.chdir(directory)
    kills(300)
    months()

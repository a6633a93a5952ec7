"""Runs that last: files that logrotate takes away, signals, and what a supervisor is told:
service_test.py ZORSTAT LOGROTATE"""

import os
import pty
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time

ZORSTAT, LOGROTATE = sys.argv[1:]
directory = tempfile.TemporaryDirectory()
os.chdir(directory.name)


def wait_until(condition):
    end = time.monotonic() + 30
    while not condition():
        assert time.monotonic() < end, condition
        time.sleep(0.01)


def text(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def on_terminal(command, env):
    pid, master = pty.fork()
    if pid == 0:
        os.execve(command[0], command, env)
    return pid, master


class Service:
    """A run that polls a pipe, so that each poll is an event here: the run opens the pipe for it."""

    def __init__(self, name, *words, start=subprocess.Popen, watchdog="", **more):
        self.name = name
        os.mkdir(name)
        os.mkfifo(f"{name}/diskstats")
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        address = f"@{os.getpid()}-{name}" if start == on_terminal else f"{os.getcwd()}/{name}/notify"
        self.socket.bind(address.replace("@", "\0"))
        self.socket.settimeout(30)
        environment = os.environ | {"NOTIFY_SOCKET": address, "WATCHDOG_USEC": watchdog}
        self.process = start([ZORSTAT, *words], env=environment, **more)

    def poll(self, value):
        with open(f"{self.name}/diskstats", "w", encoding="utf-8") as pipe:
            pipe.write(f"8 0 sda 1 1 1 1 1 1 1 1 {value} 1 1\n")

    def expect(self, line):
        """The lines of the message that has this one, others being passed over."""
        while True:
            lines = self.socket.recv(4096).decode().split("\n")
            if any(re.fullmatch(line, each) for each in lines):
                return lines

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        self.expect("STOPPING=1")
        assert self.process.wait(30) == 0


with open("create.toml", "w", encoding="utf-8") as file:
    file.write("source = 'disk'\nproc = 'create'\noutput = 'create.txt'\nheaders = true\n"
               "[objects.in_flight]\nstatistics = 'summary'\n")
COUNT = ["live", "disk", "--objects", "in_flight", "--statistics", "summary"]
create = Service("create", "live", "--config", "create.toml")
copied = Service("copied", *COUNT, "--proc", "copied", "--format", "csv", "--append", "-o", "copied.csv",
                 "--host", "h")
with open("rotate.conf", "w", encoding="utf-8") as file:
    file.write(f"rotate 9\nnomail\n{os.getcwd()}/create.txt {{\n create 0640\n"
               f" postrotate\n  kill -HUP {create.process.pid}\n endscript\n}}\n"
               f"{os.getcwd()}/copied.csv {{\n copytruncate\n}}\n")
services = {"create.txt": create, "copied.csv": copied}

for value in 7, 8, 9:
    for path, service in services.items():
        service.poll(value)
        if value == 7:
            ready = service.expect("READY=1")
            assert any(line.startswith("STATUS=") for line in ready), ready
        service.process.send_signal(signal.SIGUSR1)
        written = re.compile(rf"sda, ?1, ?{value},")
        wait_until(lambda path=path, written=written: os.path.exists(path) and written.search(text(path)))
    if value != 9:
        subprocess.run([LOGROTATE, "--force", "--state", "state", "rotate.conf"], check=True)
        reload = create.expect("RELOADING=1")
        assert re.fullmatch(r"MONOTONIC_USEC=\d+", reload[1]), reload
        create.expect("READY=1")
for service in services.values():
    service.end()

# Each sample is in one file, and each file begins as a first one does.
for age, value in (".2", 7), (".1", 8), ("", 9):
    header, names, record = text("create.txt" + age).splitlines()
    assert header.startswith("Schema-def disk-summary") and "Epochtime" in names, header
    assert re.fullmatch(rf"disk-summary: \d+, in_flight, sda, 1, {value}, {value}, {value}\.000", record), record
    header, line = text("copied.csv" + age).splitlines()
    assert header.startswith("time,host,"), header
    assert re.fullmatch(rf"\d+,h,disk,in_flight,sda,1,{value},,,{value},{value},,,,", line), line
assert os.stat("create.txt").st_mode & 0o777 == 0o640

# A hang-up ends a run that has no file, and one whose terminal goes; while that is there the file is opened again.
stream = Service("stream", *COUNT, "--proc", "stream", stdout=subprocess.PIPE, watchdog="1000000")
stream.poll(5)
stream.expect("READY=1")
start = time.monotonic()
assert [stream.expect("WATCHDOG=1") for _ in range(3)] == [["WATCHDOG=1"]] * 3  # long before the next poll
assert 1 < time.monotonic() - start < 8
stream.process.send_signal(signal.SIGHUP)
stream.expect("STOPPING=1")
assert b"in_flight, sda, 1, 5" in stream.process.communicate(timeout=30)[0] and stream.process.returncode == 0

terminal = Service("terminal", "record", "disk", "--proc", "terminal", "-o", "polls.csv", start=on_terminal)
pid, master = terminal.process
terminal.poll(5)
terminal.expect("READY=1")
os.rename("polls.csv", "polls.csv.1")
os.kill(pid, signal.SIGUSR1)  # means nothing to it
os.kill(pid, signal.SIGHUP)
terminal.expect("RELOADING=1")
terminal.expect("READY=1")
assert text("polls.csv") == "" and len(text("polls.csv.1").splitlines()) == 2
os.close(master)
terminal.expect("STOPPING=1")
assert os.waitpid(pid, 0)[1] == 0

# A replay with the settings of a run leaves the run's output alone.
before = text("create.txt")
replay = [ZORSTAT, "replay", "polls.csv.1", "--config", "create.toml", "--dg", "again"]
replayed = subprocess.run(replay, check=True, capture_output=True, text=True).stdout
assert "again-summary: " in replayed and text("create.txt") == before

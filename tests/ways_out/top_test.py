"""zorstat top in a terminal of tmux: top_test.py ZORSTAT"""

import os
import re
import signal
import subprocess
import sys
import tempfile
import time
from unicodedata import east_asian_width

ZORSTAT = sys.argv[1]
TMUX = ["tmux", "-u", "-L", f"zorstat-{os.getpid()}", "-f", "/dev/null"]
os.chdir(tempfile.mkdtemp())


def tmux(*words):
    return subprocess.run([*TMUX, *words], check=True, capture_output=True, text=True).stdout


def show(session, condition, *options):
    """The screen, when it is as it should be."""
    end = time.time() + 15
    while not condition(screen := tmux("capture-pane", "-p", "-t", session, *options)):
        assert time.time() < end, f"{session}:\n{screen}"
        time.sleep(0.05)
    return screen


def poll(grown):
    os.makedirs("net", exist_ok=True)
    rows = [("eth0", 15000), ("日本語" * 50, 999), ("a\u202eb\u0301", 5e18)]
    rows += ((f"br{i}", i * 1000) for i in range(50))
    with open("net/dev", "w", encoding="utf-8") as file:
        file.writelines(f"{name}: {10 + grown * bytes:.0f} {'1 ' * 15}\n" for name, bytes in rows)


for redirect in "</dev/null", ">/dev/null":
    words = ["script", "-qec", f"{ZORSTAT} top cpu {redirect}", "/dev/null"]
    run = subprocess.run(words, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    assert (run.returncode, "needs a terminal" in run.stdout) == (2, True), run

poll(0)
COMMAND = f"{ZORSTAT} top net --proc . --range 0:10000"
SESSIONS = {"view": "LC_ALL=C.UTF-8", "plain": "LC_ALL=C NO_COLOR=1", "TERM": "", "SEGV": "", "QUIT": ""}
try:
    for session, environment in SESSIONS.items():
        tmux("new-session", "-d", "-s", session, "-x", "80", "-y", "24", "sh")
        shell = f"stty -a >{session}.0; env {environment} {COMMAND}; echo status $?; stty -a >{session}.1; echo end"
        tmux("send-keys", "-t", session, f"clear; {shell}", "Enter")
        show(session, lambda screen: re.search(r"br0 +-", screen))
    poll(1)
    for name, status in ("TERM", 0), ("SEGV", 139), ("QUIT", 131):
        pane = tmux("list-panes", "-t", name, "-F", "#{pane_pid}").strip()
        view = subprocess.run(["pgrep", "-P", pane], check=True, capture_output=True).stdout
        os.kill(int(view), signal.Signals[f"SIG{name}"])
        show(name, lambda screen: f"status {status}\nend" in screen)

    # At the second poll.
    show("plain", lambda screen: re.search(r"^ {2}eth0 +1.5 kB/s( +1.5 kB/s){3} +100 % +#$", screen, re.M))
    assert all(ord(c) < 128 for c in tmux("capture-pane", "-p", "-t", "plain"))
    assert not re.search("\x1b\\[3[0-7]", tmux("capture-pane", "-pe", "-t", "plain"))
    rows = show("view", lambda screen: re.search(r"1.5 kB/s.* █$", screen, re.M)).splitlines()
    assert "\x1b[33m" in tmux("capture-pane", "-pe", "-t", "view")
    ends = {sum(1 + (east_asian_width(c) == "W") for c in row[: row.index("/s")]) for row in rows[2:5]}
    assert rows[4].startswith("  a?b?") and len(ends) == 1, rows

    for columns, figures in (40, "LAST MEDIAN"), (200, "LAST MIN MEDIAN 97.72% MAX BEYOND"):
        tmux("resize-window", "-t", "view", "-x", str(columns))
        titles = ["INSTANCE", *figures.split(), "POLLS"]
        show("view", lambda screen: screen.splitlines()[1].split() == titles and " q quit  ? help " in screen)
    for keys, shown in {
        "Tab": r"^net rx_packets \(2 of 16\)",
        "BTab": r"^net rx_bytes ",
        "s": r"▲INSTANCE[^\n]*\n  a\?b.*: name",
        "s r": r"▲LAST.*\n  br0 .*: last",
        "End": r"br49 .*\n.*33-53 of 53",
        "?": r"smallest",
        "? q": r"^status 0\nend",
    }.items():
        tmux("send-keys", "-t", "view", *keys.split())
        show("view", lambda screen: re.search(shown, screen, re.S))
    for session in set(SESSIONS) - {"plain"}:
        assert tmux("display", "-p", "-t", session, "#{alternate_on} #{cursor_flag}") == "0 1\n", session
        told = [open(f"{session}.{i}", encoding="ascii").read() for i in (0, 1)]
        before, after = (re.sub("columns [0-9]+", "", text) for text in told)
        assert before == after, session
finally:
    tmux("kill-server")

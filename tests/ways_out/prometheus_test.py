"""Metrics, against the programs that read them: prometheus_test.py ZORSTAT SOURCES"""

import concurrent.futures
import contextlib
import http.client
import json
import pathlib
import re
import socket
import subprocess
import sys
import tempfile
import time

ZORSTAT, SOURCES = sys.argv[1], pathlib.Path(sys.argv[2])
sys.path.insert(0, str(SOURCES / "docs/examples"))
import fleet  # noqa: E402

TEMPORARY = tempfile.TemporaryDirectory()
DIRECTORY = pathlib.Path(TEMPORARY.name)
RULES = SOURCES / "share/zorstat/zorstat.rules.yml"


def run(*command, text=None, status=0):
    done = subprocess.run(command, input=text, capture_output=True, text=True, check=False)
    assert done.returncode == status, (command, done)
    return done.stdout + done.stderr


def replay(polls, *options):
    """What a file of metrics holds, by series."""
    file = DIRECTORY / "replay.prom"
    run(ZORSTAT, "replay", "-", "--prometheus", file, "-o", "/dev/null", *options, text=polls)
    assert not run("promtool", "check", "metrics", text=file.read_text())
    return dict(line.rsplit(" ", 1) for line in file.read_text().splitlines() if line[0] != "#")


def check_edges():
    for kind, samples, options, expected in [
            ("u32", [0, 4, 5, 19, 20, 99], "0:19 4 4", "4:2 9:3 14:3 19:4 +Inf:6"),
            ("u32", [0, 4, 5, 19, 20, 99], "0:19 20 7", "1:1 4:2 7:3 10:3 13:3 16:3 19:4 +Inf:6"),
            ("i64", [-99, -11, -10, 9, 10], "-10:9 20 2", "-11:2 -1:3 9:4 +Inf:5"),
            ("i32", [-2147483648, 0], "-2147483648:0 1 20", "0:2 +Inf:2"),
            ("u64", [1, 2, 9], "0:3 100 20", "0:0 1:1 2:2 3:2 +Inf:3"),
            ("u64", [18446744073709551615], "18446744073709551600:18446744073709551615 5 5",
             "1.844674407370955e+19:0 +Inf:1")]:
        polls = f"time,k,a:{kind}\n" + "".join(f"{10 * i},x,{sample}\n" for i, sample in enumerate(samples))
        bounds, buckets, edges = options.split()
        metrics = replay(polls, "--range", bounds, "--buckets", buckets, "--edges", edges, "--clear", "2")
        found = [(re.search('le="(.*)"', name)[1], n) for name, n in metrics.items() if "sample_bucket" in name]
        assert " ".join(map(":".join, found)) == expected, (found, expected)


def check_stale():
    """The second interval is the first without key x; two polls each."""
    for intervals, series, quantiles in [(1, 1, 9), (2, 1, 0), (3, 0, 0)]:
        polls = "time,k,a\n0,x,5\n10,x,5\n" + "".join(f"{t},y,5\n" for t in range(0, 20 * intervals, 10) if t > 10)
        metrics = replay(polls, "--range", "0:9", "--clear", "2", "--expire", "2")
        of_x = [name for name in metrics if 'key="x"' in name]
        assert sum(name.startswith("zorstat_sample_count") for name in of_x) == series, (intervals, of_x)
        assert sum("quantile" in name for name in of_x) == quantiles, (intervals, of_x)


def check_rules():
    """Alerts that fire, by minute: a departs after 29, and its range of n is narrow; b has no baseline, has a gap,
    and falls silent after 40; c is below its baseline from 61 on. Of d and e, d alone has an edge at 24."""
    key = 'group="g",key="k"'
    series = [
        ("interval", 'object="o",quantile="0.5",instance="a"', "5x29 1800x60"),
        ("interval", 'object="o",quantile="0.5",instance="b"', "5x39 _x10 5x39"),
        ("interval", 'object="o",quantile="0.5",instance="c"', "5x60 1x30"),
        ("baseline_high", 'object="o",instance="a"', "10x89"),
        ("baseline_low", 'object="o",instance="c"', "2x89"),
        ("baseline_count", 'object="o",instance="a"', "0+6x89"),
        ("baseline_outside_total", 'object="o",side="above",instance="a"', "0x29 0+4x60"),
        ("baseline_outside_total", 'object="o",side="below",instance="a"', "0x89"),
        ("poll_interval_seconds", 'instance="b"', "10x89"),
        ("last_poll_timestamp_seconds", 'instance="b"', "0+60x40 2400x49"),
        ("sample_count", 'object="n",instance="a"', "0+6x89"),
        ("outside_total", 'object="n",side="above",instance="a"', "0+1x89"),
        *[("sample_bucket", f'object="f",instance="d",le="{le}"', "0+60x89") for le in ("24", "49", "+Inf")],
        ("sample_count", 'object="f",instance="d"', "0+60x89"),
        ("sample_bucket", 'object="f",instance="e",le="49"', "0+60x89"),
        ("sample_bucket", 'object="f",instance="e",le="+Inf"', "0+120x89"),
        ("sample_count", 'object="f",instance="e"', "0+120x89")]
    narrow, above, left = "RangeTooNarrow a", "AboveBaseline a", "LeftLearntRange a"
    silent, below = "Silent b", "BelowBaseline c"
    tests = [('count by (alertname, instance) (ALERTS{alertstate="firing"})', minute,
              [('{alertname="Zorstat%s", instance="%s"}' % tuple(alert.split()), 1) for alert in alerts])
             for minute, alerts in [(5, []), (34, [narrow]), (36, [narrow, above]), (42, [narrow, above]),
                                    (50, [narrow, above, left, silent]), (64, [narrow, above, left, silent]),
                                    (70, [narrow, above, left, silent, below])]]
    tests.append(('group_object_le:zorstat_sample_bucket:rate10m{object="f"} > 0', 30, [
        (f'group_object_le:zorstat_sample_bucket:rate10m{{group="g",object="f",le="{le}"}}', rate)
        for le, rate in (("49", 2), ("+Inf", 3))]))
    tests.append(('group_object:zorstat_sample:quantile{quantile="0.5"}', 31, [
        ('group_object:zorstat_sample:quantile{group="g",object="f",quantile="0.5"}', 36.75)]))
    (DIRECTORY / "test.yml").write_text(json.dumps({"rule_files": [str(RULES)], "tests": [{
        "interval": "1m",
        "input_series": [{"series": f"zorstat_{name}{{{key},{labels}}}", "values": values}
                         for name, labels, values in series],
        "promql_expr_test": [{"expr": expression, "eval_time": f"{minute}m",
                              "exp_samples": [{"labels": labels, "value": value} for labels, value in samples]}
                             for expression, minute, samples in tests]}]}))
    run("promtool", "check", "rules", RULES)
    run("promtool", "test", "rules", DIRECTORY / "test.yml")


def check_refusals():
    for address, status in [("9100", 2), (":9100", 2), ("[::1]", 2), ("::1:9100", 2), ("127.0.0.1:0", 2),
                            ("127.0.0.1:9100,0.0.0.0:9100", 2), ("512.0.0.0:9100", 1), (LIVE, 1)]:
        error = run(ZORSTAT, "live", "cpu", "--count", "1", "--listen", address, status=status)
        assert error.startswith(f"zorstat: --listen: '{address}': ") and error.count("\n") == 1, error
    assert ": expected a name that ends in .prom\n" in run(
        ZORSTAT, "live", "cpu", "--count", "1", "--prometheus", "x.txt", status=2)


def scrape(times):
    """The lengths of so many scrapes over one connection, each whole."""
    client = http.client.HTTPConnection(LIVE, timeout=9)
    for _ in range(times):
        client.request("GET", "/metrics")
        answer = client.getresponse()
        text = answer.read().decode()
        assert answer.status == 200 and text.endswith("\n") and text.count("zorstat_sample_bucket") == 20 * 11, text
    return times


def check_fleet(address, samples):
    fleet.wait_for(lambda: sum(fleet.query(address, "zorstat_polls_total").values()) >= len(samples) + 1)
    fleet.wait_for(lambda: fleet.query(address, 'sum(zorstat_sample_count{group="fleet"})')[()] == len(samples))
    for point in fleet.POINTS:
        shown, exact = fleet.fleet_percentile(address, point), fleet.percentile(samples, point)
        assert abs(shown - exact) < (fleet.LAST + 1) / fleet.EDGES, (address, point, shown, exact)


def write_proc(ticks):
    (DIRECTORY / "stat").write_text("".join(f"cpu{n} {' '.join([str(ticks * n)] * 10)}\n" for n in (1, 2)))


write_proc(0)
LIVE = f"127.0.0.1:{fleet.free_port()}"
V6 = f"[::1]:{fleet.free_port()}"
file = DIRECTORY / "live.prom"
live = [ZORSTAT, "live", "cpu", "--proc", DIRECTORY, "--range", "0:9", "--clear", "1", "-o", "/dev/null"]
with contextlib.ExitStack() as stack:
    program = stack.enter_context(fleet.running("sh", "-c", 'umask 077; exec "$@"', "sh", *live, "--listen", LIVE,
                                                "--prometheus", file))
    stack.enter_context(fleet.running(*live, "--listen", V6))
    fleet.wait_for(file.exists)
    write_proc(3)
    samples = sum(fleet.make_fleet(ZORSTAT, DIRECTORY), [])
    textfiles = DIRECTORY / "textfiles"
    textfiles.mkdir()
    (DIRECTORY / "host3.prom").rename(textfiles / "host3.prom")
    node = f"127.0.0.1:{fleet.free_port()}"
    stack.enter_context(fleet.running("prometheus-node-exporter", f"--web.listen-address={node}",
                                      "--collector.disable-defaults", "--collector.textfile",
                                      f"--collector.textfile.directory={textfiles}"))
    files = stack.enter_context(fleet.serving(DIRECTORY))
    targets = [f"{files}/host{number}.prom" for number in range(3)] + [f"{node}/metrics", f"{LIVE}/metrics"]
    prometheus = stack.enter_context(fleet.prometheus(DIRECTORY, targets))
    victoria = f"127.0.0.1:{fleet.free_port()}"
    stack.enter_context(fleet.running("victoria-metrics", f"-promscrape.config={DIRECTORY}/prometheus.yml",
                                      f"-storageDataPath={DIRECTORY}/victoria", f"-httpListenAddr={victoria}",
                                      "-search.latencyOffset=1s", "-loggerLevel=ERROR"))
    first = fleet.get(f"http://{LIVE}/metrics")
    assert 'zorstat_sample_bucket{group="cpu",object="user",key="cpu2",le="9"} 0' in first, first
    run("promtool", "check", "metrics", text=first)
    assert file.stat().st_mode & 0o777 == 0o644
    with contextlib.suppress(OSError):
        socket.create_server(("::1", 0), family=socket.AF_INET6).close()
        assert "zorstat_polls_total" in fleet.get(f"http://{V6}/metrics")
    for name in ("net", "disk", "cpu"):
        data = SOURCES / "data" / name
        replay(data.with_suffix(".csv").read_text(), "--config", f"{data}.toml")
    check_edges()
    check_stale()
    check_rules()
    check_refusals()
    for address in (prometheus, victoria):
        check_fleet(address, samples)
    silent = socket.create_connection(LIVE.split(":"))
    with concurrent.futures.ThreadPoolExecutor(8) as clients:
        assert sum(clients.map(scrape, [125] * 8)) == 1000
    fleet.wait_for(lambda: 'object="user",key="cpu2",le="9"} 1\n' in fleet.get(f"http://{LIVE}/metrics"))
    assert 'object="user",key="cpu2",quantile="0.5"} 6\n' in file.read_text()
    with socket.create_connection(LIVE.split(":")) as half:
        half.sendall(b"GET /metrics HTTP/1.1\r\n")
        time.sleep(0.2)
        program.terminate()
        assert program.wait(1) == 0

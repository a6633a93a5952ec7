#!/usr/bin/python3
"""Percentiles of a fleet: what Prometheus says of four pretend hosts, beside the exact ones and a wrong average.

    docs/examples/fleet.py build/release/tools/zorstat

Each host is a replay of made-up polls with --prometheus; a real Prometheus on the loopback scrapes the files.
"""

import contextlib
import functools
import http.server
import json
import pathlib
import random
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.parse
import urllib.request

POINTS = [0.0228, 0.1587, 0.5, 0.8413, 0.9772, 0.9987]
LAST, EDGES = 99999, 20  # of the range 0:LAST
LOCAL = "127.0.0.1"


def free_port():
    with socket.create_server((LOCAL, 0)) as server:
        return server.getsockname()[1]


def get(url):
    with urllib.request.urlopen(url, timeout=10) as answer:
        return answer.read().decode()


def wait_for(condition, seconds=20):
    """What the condition returns when it is true."""
    end = time.monotonic() + seconds
    while True:
        with contextlib.suppress(urllib.error.URLError, ConnectionError):
            result = condition()
            if result:
                return result
        if time.monotonic() > end:
            raise TimeoutError("no answer that was waited for")
        time.sleep(0.1)


@contextlib.contextmanager
def running(*command):
    """A program that is ended with the block."""
    with tempfile.TemporaryFile() as log:
        program = subprocess.Popen(command, stdout=log, stderr=log)
        try:
            yield program
        except Exception:
            log.seek(0)
            sys.stderr.buffer.write(log.read()[-3000:])
            raise
        finally:
            program.terminate()
            program.wait()


@contextlib.contextmanager
def serving(directory):
    """The files of a directory over HTTP; gives the address."""

    class Quiet(http.server.SimpleHTTPRequestHandler):
        def log_message(self, *_):
            pass

    server = http.server.ThreadingHTTPServer((LOCAL, 0), functools.partial(Quiet, directory=directory))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        yield f"{LOCAL}:{server.server_port}"
    finally:
        server.shutdown()


def scrape_config(path, targets):
    """Writes a configuration, JSON being YAML, for addresses like HOST:PORT/PATH."""
    jobs = []
    for number, target in enumerate(targets):
        address, metrics = target.split("/", 1)
        jobs.append({"job_name": f"host{number}", "metrics_path": "/" + metrics,
                     "static_configs": [{"targets": [address]}]})
    path.write_text(json.dumps({"global": {"scrape_interval": "1s"}, "scrape_configs": jobs}))


@contextlib.contextmanager
def prometheus(directory, targets):
    """A Prometheus that scrapes them; gives its address."""
    scrape_config(directory / "prometheus.yml", targets)
    address = f"{LOCAL}:{free_port()}"
    with running("prometheus", f"--config.file={directory}/prometheus.yml", f"--web.listen-address={address}",
                 f"--storage.tsdb.path={directory}/prometheus"):
        wait_for(lambda: get(f"http://{address}/-/ready"))
        yield address


def query(address, expression):
    """The values of an instant query, by the labels that it keeps."""
    text = urllib.parse.urlencode({"query": expression, "nocache": 1})
    result = json.loads(get(f"http://{address}/api/v1/query?{text}"))["data"]["result"]
    return {tuple(sorted(item["metric"].values())): float(item["value"][1]) for item in result}


def fleet_percentile(address, point):
    quantile = f'histogram_quantile({point}, sum by (le) (zorstat_sample_bucket{{group="fleet", object="load"}}))'
    return query(address, quantile)[()]


def percentile(samples, point):
    """Exact: samples[position] with linear interpolation."""
    samples = sorted(samples)
    position = point * (len(samples) - 1)
    low = int(position)
    high = min(low + 1, len(samples) - 1)
    return samples[low] + (samples[high] - samples[low]) * (position - low)


def make_fleet(zorstat, directory):
    """Four hosts, three of them idle most of the time, as files hostN.prom; gives the samples of each."""
    chance = random.Random(1)
    fleet = []
    for number, typical in enumerate([1500, 2500, 4000, 60000]):
        samples = [min(LAST, int(chance.expovariate(1 / typical))) for _ in range(900)]
        if number == 3:
            samples = [int(chance.gauss(typical, 12000)) % LAST for _ in samples]
        lines = [f"{1700000000 + 10 * poll},all,{sample}\n" for poll, sample in enumerate(samples)]
        polls = directory / f"host{number}.csv"
        polls.write_text("time,host,load\n" + "".join(lines))
        subprocess.run([zorstat, "replay", polls, "--dg", "fleet", "--range", f"0:{LAST}", "--clear", "60",
                        "--edges", str(EDGES), "--prometheus", directory / f"host{number}.prom", "-o", "/dev/null"],
                       check=True)
        fleet.append(samples)
    return fleet


def main():
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        fleet = make_fleet(sys.argv[1], directory)
        pooled = [sample for samples in fleet for sample in samples]
        with serving(directory) as files, prometheus(
                directory, [f"{files}/host{number}.prom" for number in range(len(fleet))]) as address:
            wait_for(lambda: len(query(address, "zorstat_sample_count")) == len(fleet))
            print(f"{len(fleet)} hosts, {len(pooled)} samples; edges {(LAST + 1) // EDGES} apart\n")
            print("   point   exact, pooled   Prometheus, fleet   average of the hosts' percentiles")
            for point in POINTS:
                average = sum(percentile(samples, point) for samples in fleet) / len(fleet)
                print(f"{100 * point:6.2f} %{percentile(pooled, point):16.0f}"
                      f"{fleet_percentile(address, point):20.0f}{average:36.0f}")


if __name__ == "__main__":
    main()

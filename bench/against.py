#!/usr/bin/python3
"""The library beside what it was: the same program measures this build and that of an older commit by turns.

    bench/against.py [--quick] ZOR_BENCH [COMMIT]

COMMIT is the newest tag if none is named, and where there are no tags the commit that last changed the version.
A ratio is the median over the turns, new time / old; those beyond 1.03 are marked as worse."""

import json
import os
import statistics
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
GIT = ["git", "-C", ROOT, "-c", f"safe.directory={ROOT}"]
VERSION = "define ZOR_PROCESS_VERSION_(MAJOR|MINOR|PATCH) "
TOO_MUCH = 1.03
# What, its scenario and counter. Those marked True are left out of a quick run.
MEASURED = [
    ("rows in stable order, 100 x 10", "rows_stable/100", "ours", False),
    ("rows in stable order, 10,000 x 10", "rows_stable/10000", "ours", False),
    ("rows in stable order, 100,000 x 10", "rows_stable/100000", "ours", True),
    ("rows shuffled, 100 x 10", "rows_shuffled/100", "ours", False),
    ("rows shuffled, 10,000 x 10", "rows_shuffled/10000", "ours", False),
    ("rows shuffled, 100,000 x 10", "rows_shuffled/100000", "ours", True),
    ("one hot instance", "hot_insert", "ours", False),
    ("baseline after learning", "baseline_insert", "ours", False),
    ("nine percentiles, range of 2^20", "percentiles/width", "ours_20", False),
    ("nine percentiles, range of 2^64", "percentiles/width", "ours_64", False),
    ("clear of a data group", "clear", "ours", False),
    ("  collecting the clear buffers", "clear", "collect", False),
    ("memory per statistic (bytes)", "memory", "ours", False),
]


def told(*command):
    return subprocess.run(command, capture_output=True, text=True, check=False).stdout.strip()


def last_release():
    tag = told(*GIT, "describe", "--tags", "--abbrev=0")
    return tag or told(*GIT, "log", "-1", "--format=%H", "-G", VERSION, "--", "include/zor/version.h")


def build(commit):
    """The library of a commit, in a directory of its own, where the next run finds it built."""
    directory = os.path.join(ROOT, "build/against", commit)
    source, library = os.path.join(directory, "source"), os.path.join(directory, "build")
    os.makedirs(source, exist_ok=True)
    archive = subprocess.run([*GIT, "archive", commit], check=True, stdout=subprocess.PIPE).stdout
    subprocess.run(["tar", "-x", "-C", source], input=archive, check=True)
    off = [f"-DZOR_{what}=OFF" for what in ("BUILD_TOOLS", "BUILD_TESTS", "WARNINGS_AS_ERRORS")]
    for command in (
        ["cmake", "-S", source, "-B", library, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", *off],
        ["cmake", "--build", library, "--target", "zor_process"],
    ):
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        if result.returncode:
            sys.exit(result.stdout + result.stderr)
    return library


def take(program, library):
    """Makes the program take this library. Where it cannot, as with another major version, it would go on with its
    own and show no difference."""
    os.environ["LD_LIBRARY_PATH"] = library
    taken = [line.split()[2] for line in told("ldd", program).splitlines() if "libzor_" in line]
    wrong = [path for path in taken if os.path.dirname(path) != library]
    if wrong or not taken:
        sys.exit(f"{program} cannot be run with the library in {library}: it takes {', '.join(wrong) or 'none'}")


def measure(program, library, scenario):
    """Its figures; none where the old library lacks what it needs. Each is a process, so that others go on."""
    take(program, library)
    with tempfile.NamedTemporaryFile(suffix=".json") as file:
        command = [program, "--quick", "--json", file.name, f"--benchmark_filter=^{scenario}/iterations:"]
        if subprocess.run(command, capture_output=True, check=False).returncode:
            return None
        (figures,) = json.load(file)["benchmarks"]
        return figures


def print_line(what, counter, turns):
    turns = [(new[counter], old[counter]) for new, old in turns if new and old]
    if not turns:
        print(f"{what:40} {'not run':>10}")
        return
    new, old = (statistics.median(side) for side in zip(*turns))
    ratios = [new / old for new, old in turns]
    ratio = statistics.median(ratios)
    worse = "  worse" if ratio > TOO_MUCH else ""
    print(f"{what:40} {new:10.2f} {old:10.2f} {ratio:7.3f}   {min(ratios):.3f} to {max(ratios):.3f}{worse}")


def main(program, commit=None, quick=False):
    release = commit or last_release()
    if not release:
        print("Here is no release to measure against.")
        return
    commit = told(*GIT, "rev-parse", "--short", f"{release}^{{commit}}")
    if not commit:
        sys.exit(f"{release}: no such commit")
    program = os.path.abspath(program)
    builds = os.path.dirname(os.path.dirname(program)), build(commit)
    print(f"{f'nanoseconds, against {commit}':40} {'new':>10} {'old':>10} {'ratio':>7}   from turn to turn")
    turns = {}
    for what, scenario, counter, is_large in MEASURED:
        if quick and is_large:
            continue
        if scenario not in turns:
            turns[scenario] = []
            for turn in range(3 if quick else 7):
                # The order changes, so that what goes on getting slower or faster favours neither.
                sides = [measure(program, library, scenario) for library in builds[:: 1 - turn % 2 * 2]]
                turns[scenario].append(sides[:: 1 - turn % 2 * 2])
        print_line(what, counter, turns[scenario])


ARGUMENTS = [word for word in sys.argv[1:] if word != "--quick"]
main(*ARGUMENTS, quick="--quick" in sys.argv)

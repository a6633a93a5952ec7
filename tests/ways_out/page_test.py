"""Pages in a browser: page_test.py ZORSTAT SOURCE_DIR

Chromium opens each page; a probe at its end does what a person would, and leaves what is to be seen there."""

import csv
import html
import json
import pathlib
import re
import subprocess
import sys
import tempfile

ZORSTAT, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])
directory = tempfile.TemporaryDirectory()
HERE = pathlib.Path(directory.name)

# Rows of the table as texts; then the second instance, all of the first chart's pixels, a zoom by keys, and back.
PROBE = """<script>
const seen = {title: document.title, period: find('period').textContent, first: find('first').textContent};
seen.rows = page.lines.map(line => [...line.cells].map(cell => cell.textContent));
seen.exact = data.objects.map(object => (load(object), object.instances.map(({name, departure, rows}) =>
  [object.name, name, rows.reduce((sum, row) => sum + row.samples, 0),
    Math.round(Math.max(...rows.map(most)) / object.factor), departure])));
const pixels = id => find(id).querySelector('canvas')?.toDataURL();
const press = (id, key) => find(id).dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true}));
const before = ['fan', 'spread'].map(pixels);
press('table', 'ArrowDown');
seen.chosen = find('chosen').textContent;
seen.focus = document.activeElement.textContent;
seen.redrawn = ['fan', 'spread'].map((id, i) => pixels(id) !== before[i]);
for (const key of ['ArrowRight', '+', '+']) press('fan', key);
seen.told = find('fan').getAttribute('aria-valuetext');
seen.zoomed = (page.view.to - page.view.from) / (whole.to - whole.from);
press('fan', 'Escape');
seen.back = page.view.to - page.view.from === whole.to - whole.from;
seen.made = document.querySelectorAll('img, iframe, #data ~ script').length; // charts, page, probe
document.body.append(element('pre', {id: 'seen'}, JSON.stringify(seen)));
</script>"""


def zorstat(*arguments):
    run = subprocess.run([ZORSTAT, *map(str, arguments)], capture_output=True, text=True)
    return run.returncode, run.stdout, run.stderr


def seen(page):
    probed = HERE / "probed.html"
    probed.write_text(page.read_text(encoding="utf-8").replace("</body>", PROBE + "</body>"), encoding="utf-8")
    chromium = ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu", "--enable-logging=stderr",
                "--dump-dom", f"--user-data-dir={HERE}/profile", "--virtual-time-budget=8000", probed.as_uri()]
    run = subprocess.run(chromium, capture_output=True, text=True, timeout=100)
    errors = [line for line in run.stderr.splitlines() if "CONSOLE" in line]
    assert not errors, errors
    return json.loads(html.unescape(re.search(r'<pre id="seen">(.*)</pre>', run.stdout, re.S)[1]))


# Number and largest of the samples are those of the records.
for name in "net", "disk", "cpu":
    page = HERE / f"{name}.html"
    polls, config = SOURCE / f"data/{name}.csv", SOURCE / f"data/{name}.toml"
    code, records, _ = zorstat("replay", polls, "--config", config, "--html", page)
    sums = {}
    for line in records.splitlines():
        kind, *fields = line.split(", ")
        if "-summary" in kind and fields[2] != "0":
            old = sums.get((fields[0], fields[1]), (0, 0))
            sums[fields[0], fields[1]] = old[0] + int(fields[2]), max(old[1], int(fields[4]))
    shown = seen(page)
    found = {(row[0], row[1]): (row[2], row[3]) for row in sum(shown["exact"], []) if (row[0], row[1]) in sums}
    assert code == 0 and shown["title"] == f"{name} · zorstat" and shown["back"], shown
    assert found == sums and sums, (found, sums)

# A day with two faults, and the same from what was kept.
day, kept = HERE / "day.csv", HERE / "kept.jsonl"
with day.open("w") as polls:
    subprocess.run([sys.executable, SOURCE / "docs/examples/made_up_day.py"], stdout=polls, check=True)
config = SOURCE / "docs/examples/made_up_day.toml"
zorstat("replay", day, "--config", config, "--format", "jsonl", "-o", kept, "--html", HERE / "day.html")
assert zorstat("page", kept, "-o", HERE / "kept.html")[0] == 0
for page in HERE / "day.html", HERE / "kept.html":
    shown = seen(page)
    names = [row[0] for row in shown["rows"]]
    assert names[:2] == ["sd31", "sd12"] and len(names) == 50 and "sd31" in shown["first"], names
    assert shown["chosen"].startswith("sd12") and shown["focus"] == "sd12" and all(shown["redrawn"]), shown
    assert abs(shown["zoomed"] - 0.25) < 0.01 and "60 samples" in shown["told"], shown["told"]
code, _, error = zorstat("replay", day, "--config", config, "--clear", "2", "--html", HERE / "large.html")
fits = re.search(r"--clear (\d+) fits", error)[1]
assert code == 1 and not (HERE / "large.html").exists() and error.count("page") == 1, error
assert zorstat("replay", day, "--config", config, "--clear", fits, "--html", HERE / "large.html")[0] == 0

# Names are text, whatever they hold; what was constant departs by a number; a last interval of one sample does not.
names = ["</script><script>document.title='owned'</script>", "<img src=x onerror=alert(1)>", "\"'`${1}&lt;\\u003c",
         "\u202eright to left \u0645\u0631\u062d\u0628\u0627", "\U0001f4be", "n" * 10000]
hostile, page = HERE / "hostile.csv", HERE / "hostile.html"
with hostile.open("w", encoding="utf-8", newline="") as polls:
    lines = csv.writer(polls, lineterminator="\n")
    lines.writerow(["time", "key", "</title><b>"])
    for t in range(100, 211):
        for i, name in enumerate(names):
            lines.writerow([t * 10, name, (500 if t < 180 else 900) if i else (5 if t < 160 else 500)])
code, _, error = zorstat("replay", hostile, "--range", "0:999", "--clear", "10", "--dg", "<i>", "--html", page)
assert code == 0, error
shown = seen(page)
assert [row[0] for row in shown["rows"]] == names and shown["title"] == "<i> · zorstat", shown["rows"]
assert shown["made"] == 3 and [row[4] for row in shown["exact"][0][:2]] == [99, 44.4], shown["exact"]

# Without the library of the charts nothing is counted.
lame = HERE / "lame"
lame.write_bytes(pathlib.Path(ZORSTAT).read_bytes().replace(b"/chart.min.js", b"/no-charts.js"))
lame.chmod(0o700)
run = subprocess.run([lame, "replay", hostile, "--html", page], capture_output=True, text=True)
assert (run.returncode, run.stdout, run.stderr.count("\n")) == (1, "", 1) and "libjs-chart.js" in run.stderr, run

"""The man page has the options of --help, with their values and defaults: man_page_test.py ZORSTAT MAN_PAGE"""

import re
import subprocess
import sys

PROGRAM, PAGE = sys.argv[1], open(sys.argv[2], encoding="utf-8").read()


def option(name, text):
    return " ".join([name, *re.findall(r"\(default: .*?\)", " ".join(text.split()))])


def of_help(command):
    text = subprocess.run([PROGRAM, *command, "--help"], check=True, capture_output=True, text=True).stdout
    lines = re.search(r"^Options:\n((?:  .*\n)+)", text, re.M).group(1)
    items = re.findall(r"^  (-\S+(?: \S+)?)(?=  |\n| REQ)((?:.*\n(?!  -))*.*\n)", lines, re.M)
    return {option(*item) for item in items}


def of_page(command):
    """Those of the subsections whose titles name the command, or any."""
    titles = set(command) | {"Any"} if command else {"Any", "Without"}
    found = set()
    for title, section in re.findall(r"^\.Ss (.*)\n((?:(?!\.S[sh]).*\n)*)", PAGE, re.M):
        for item in section.split(".It ")[1:] if titles & set(re.findall(r"\w+", title)) else []:
            head, body = item.split("\n", 1)
            name = re.sub(r" Ar (.*)", r" \1", head).replace("Fl ", "-").replace(" , ", ",")
            found.add(option(name, re.sub(r"^\.(?:Cm|Ar|Fl) (.*?)( [.,])?$", r"\1", body, flags=re.M)))
    return found


for words in [], ["replay"], ["live"], ["record"], ["suggest"], ["query"], ["page"], ["top"]:
    different = of_help(words) ^ of_page(words)
    assert not different, f"zorstat {words}: either --help or the man page alone has {different}"

"""The man page and --help name the same commands, options with their values and defaults, and exit statuses:
man_page_test.py ZORSTAT_PROGRAM MAN_PAGE"""

import re
import subprocess
import sys

PROGRAM, PAGE = sys.argv[1:]


def squeeze(text):
    return " ".join(text.split())


def of_help(command):
    """What --help of a command ("" for none) says: its text, and its options as in "--buckets N (default: 100)"."""
    arguments = [PROGRAM, command, "--help"] if command else [PROGRAM, "--help"]
    text = subprocess.run(arguments, check=True, capture_output=True, text=True).stdout
    options = re.search(r"^Options:\n((?:  .*\n)+)", text, re.M).group(1)
    result = []
    for option in re.split(r"^  (?=-)", options, flags=re.M)[1:]:
        name = re.match(r"\S+( \S+)?(?=  |\n)", option).group()
        result.append(" ".join([name] + re.findall(r"\(default: .*?\)", squeeze(option))))
    return text, result


def plain(mdoc):
    """Lines of the page without its marks."""
    return squeeze(re.sub(r"^\.(?:Cm|Ar|Fl) (.*?)( [.,])?$", r"\1", mdoc, flags=re.M))


def of_page(page, command):
    """The same options from the subsections whose titles name the command, or any."""
    result = []
    for title, section in re.findall(r"^\.Ss (.*)\n((?:(?!\.S[sh]).*\n)*)", page, re.M):
        if command not in title.split() and "Any" not in title and (command or "Without" not in title):
            continue
        for item in section.split(".It ")[1:]:
            head, _, body = item.partition("\n")
            name = re.sub(r" Ar (.*)", r" \1", head).replace("Fl ", "-").replace(" , ", ",")
            result.append(" ".join([name] + re.findall(r"\(default: .*?\)", plain(body))))
    return result


def main():
    with open(PAGE, encoding="utf-8") as file:
        page = file.read()
    failures = []

    def compare(what, in_help, in_page):
        only_help = [item for item in in_help if item not in in_page]
        only_page = [item for item in in_page if item not in in_help]
        if only_help or only_page:
            failures.append(f"{what}: only in --help {only_help}, only in the man page {only_page}")

    text, _ = of_help("")
    commands = re.findall(r"^  (\w+)  ", text[text.index("Subcommands:") :], re.M)
    compare("commands", commands, re.findall(r"^\.It Cm (\w+)", page, re.M))
    for command in [""] + commands:
        compare(f"options of zorstat {command}", of_help(command)[1], of_page(page, command))
    statuses = page[page.index(".Sh EXIT STATUS") :].split(".Sh")[1]
    compare(
        "exit statuses",
        re.findall(r"\b\d\b", squeeze(text[text.index("Exit status:") :])),
        re.findall(r"^\.It (\d)", statuses, re.M),
    )
    sys.exit("\n".join(failures) or 0)


main()

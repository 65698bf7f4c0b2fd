"""The man pages are clean, and leave nothing out.

    python3 tests/python/manuals_test.py CLIENT FOLDER

CLIENT is the built program morvane, FOLDER the one with the pages.
"""

from __future__ import annotations

import pathlib
import re
import subprocess
import sys

SOURCES = pathlib.Path(__file__).resolve().parents[2]
CLIENT = sys.argv[1]
PAGES = sorted(pathlib.Path(sys.argv[2]).glob("*.[1-8]"))


def output(*command: str | pathlib.Path) -> str:
    done = subprocess.run(command, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return done.stdout.decode("utf-8", "replace")


def text_of(name: str) -> str:
    """The page as it is read, without bold."""
    page = next(path for path in PAGES if path.name == name)
    return re.sub(".\b", "", output("mandoc", "-T", "utf8", "-O", "width=200", page))


def completions(*words: str) -> list[str]:
    return [line.split("\t")[0] for line in output(CLIENT, "complete", "zsh", *words).splitlines()[1:]]


def missing_verbs(page: str, path: list[str]) -> list[str]:
    """What completion knows and the page doesn't: options are looked for in the section of their verb."""
    missing = []
    section = re.search(rf"^   {re.escape(' '.join(path))}\n(.*?)^ ? ? ?\S", page, flags=re.M | re.S)
    if path and section is None:
        return [" ".join(path)]
    text = page if section is None else section.group(1)
    general = page[page.index("\nOPTIONS\n") : page.index("\nVERBS IN DETAIL\n")]
    for option in completions(*path, "-"):
        if not re.search(rf"{re.escape(option)}\b", text) and not re.search(rf"{re.escape(option)}\b", general):
            missing.append(" ".join([*path, option]))
    if len(path) < 2:
        for verb in completions(*path, ""):
            if not verb.startswith("-") and (not path or path[0] in ("file", "config")):
                missing += missing_verbs(page, [*path, verb])
    return missing


def elements_of(schema: str) -> list[str]:
    return re.findall(r'<xs:(?:element|attribute) name="(\w+)"', (SOURCES / "xml/schemas" / schema).read_text("utf-8"))


def main() -> int:
    problems = []
    for page in PAGES:
        problems += output("mandoc", "-T", "lint", "-W", "style", page).splitlines()
        # What man-db does with a page, and packages are checked with.
        problems += output("groff", "-ww", "-t", "-man", "-Tutf8", "-Kutf8", "-rcR=1", "-z", page).splitlines()
    problems += [f"morvane.1 leaves out {each}" for each in missing_verbs(text_of("morvane.1"), [])]
    usage = (SOURCES / "src/src-server/server/CommandLine.cpp").read_text("utf-8")
    wanted = {
        "morvaneserver.8": re.findall(r'"(-[a-z]+)"', usage),
        "morvane-config.5": elements_of("config/ConfigSchema.xsd"),
        "morvane-protocol.7": elements_of("server/RequestSchema.xsd") + elements_of("server/ResponseSchema.xsd"),
    }
    for name, words in wanted.items():
        text = text_of(name)
        problems += [f"{name} leaves out {word}" for word in words if not re.search(rf"{word}\b", text)]
        if len(words) < 5:
            problems.append(f"Only {words} were looked for in {name}")
    if len(PAGES) != 5:
        problems.append(f"There are {len(PAGES)} pages.")
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())

"""Writes the man pages from docs/ and from the help of the built client, so that none of them can fall behind.

    python3 man/manuals.py CLIENT FOLDER

CLIENT is the built program morvane. Markdown is read as far as docs/ use it: headings, paragraphs, lists, tables,
code. The pages are in the man macros (groff_man(7)), with tables for tbl(1).
"""

from __future__ import annotations

import datetime
import math
import os
import pathlib
import re
import subprocess
import sys
import textwrap
from dataclasses import dataclass, field

DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
PROJECT = pathlib.Path(__file__).resolve().parents[1] / "CMakeLists.txt"

# Which page a document has become.
PAGE_OF = {
    "client.md": "morvane(1)",
    "operations.md": "morvaneserver(8)",
    "protocol.md": "morvane-protocol(7)",
    "data-format.md": "morvane-data(5)",
}
WIDTH = 70  # what a terminal of 80 columns leaves for a table
LONGEST_LINE = 66


@dataclass
class Page:
    name: str
    section: int
    title: str
    synopsis: list[str] = field(default_factory=list)
    description: str = ""
    body: str = ""
    see_also: list[str] = field(default_factory=list)


def escaped(text: str) -> str:
    """The text for roff, in which a hyphen may be a minus sign and quotes may be round ones."""
    for character, escape in (("\\", "\\e"), ("-", "\\-"), ("'", "\\(aq"), ("`", "\\(ga"), ("^", "\\(ha"),
                              ("~", "\\(ti")):
        text = text.replace(character, escape)
    return text


def prose(text: str) -> str:
    """As escaped, but hyphens and apostrophes are those of words."""
    for character, escape in (("\\", "\\e"), ("^", "\\(ha"), ("~", "\\(ti")):
        text = text.replace(character, escape)
    return text


def page_for(label: str, target: str) -> str:
    """What stands on paper for a link: other pages by name; places on the same page by their words alone."""
    page = PAGE_OF.get(target.split("#")[0])
    if page is None:
        return label if target.startswith("#") or label.strip("`") == target else f"{label} ({target})"
    return f"**{page}**" if label.endswith(".md") else f"{label} (**{page}**)"


def inline(text: str) -> str:
    """Code and strong words in bold, links without their targets."""
    text = re.sub(r"\[([^]]+)\]\(([^)]+)\)", lambda link: page_for(link.group(1), link.group(2)), text)
    out = ""
    for part in re.split(r"(``.+?``|`[^`]+`|\*\*.+?\*\*)", text.replace("\\|", "|")):
        if part.startswith("`"):
            out += f"\\fB{escaped(part.strip('`'))}\\fR"
        elif part.startswith("**") and len(part) > 4:
            out += f"\\fB{prose(part[2:-2])}\\fR"
        else:
            out += prose(part)
    return out


def plain(text: str) -> str:
    """What inline() leaves to be seen."""
    return re.sub(r"\\f[BR]", "", inline(text)).replace("\\-", "-").replace("\\(aq", "'").replace("\\e", "\\")


def guarded(line: str) -> str:
    """A line of text that can't be mistaken for a request."""
    return "\\&" + line if line.startswith((".", "'")) else line


def filled(text: str) -> list[str]:
    """Lines of running text, short enough for those who read the source."""
    wrapped = textwrap.wrap(inline(" ".join(text.split())), LONGEST_LINE, break_long_words=False,
                            break_on_hyphens=False)
    return [guarded(line) for line in wrapped]


def literal(lines: list[str]) -> list[str]:
    return [".PP", ".RS 4", ".EX", *(guarded(escaped(line.rstrip())) for line in lines), ".EE", ".RE"]


def cells_of(row: str) -> list[str]:
    cells = re.split(r"(?<!\\)\|", row.strip().removeprefix("|").removesuffix("|"))
    return [cell.strip() for cell in cells]


def breakable(text: str) -> str:
    """Lets long words, which are paths and lists, go on in the next line of a cell."""
    return re.sub(r"\S{20,}", lambda word: re.sub(r"([/_,=.])(?=\w)", r"\1\\:", word.group()), text)


def widths_of(rows: list[list[str]]) -> list[int]:
    """Each column gets the room of its longest word, and of what is left the more, the more stands in it."""
    columns = [[plain(cell) for cell in column] for column in zip(*rows)]
    natural = [max(len(cell) for cell in column) for column in columns]
    widths = [max([len(word) for cell in column for word in breakable(cell).replace("\\:", " ").split()], default=1)
              for column in columns]
    available = WIDTH - 3 * (len(columns) - 1) - sum(widths)
    while available > 0 and widths != natural:
        wishes = {i: math.sqrt(natural[i]) / widths[i] for i in range(len(widths)) if widths[i] < natural[i]}
        widths[max(wishes, key=lambda i: wishes[i])] += 1
        available -= 1
    return widths


def table(lines: list[str]) -> list[str]:
    rows = [cells_of(line) for line in lines]
    del rows[1]  # the rule below the headings
    widths = widths_of(rows)
    out = [".TS", "nokeep nospaces tab(|);"]
    out.append(" ".join(f"lbw({width}n)" for width in widths))
    out.append(" ".join(f"lw({width}n)" for width in widths) + ".")
    for row in rows:
        text = "|".join("T{\n" + breakable("\n".join(filled(cell))) + "\nT}" if cell else "" for cell in row)
        out += text.split("\n")
    return [*out, ".TE"]


def converted(markdown: str) -> list[str]:
    out: list[str] = []
    lines = markdown.split("\n")
    at = 0

    def taken(belongs: re.Pattern[str]) -> list[str]:
        nonlocal at
        begin = at
        while at < len(lines) and belongs.match(lines[at]):
            at += 1
        return lines[begin:at]

    while at < len(lines):
        line = lines[at]
        if not line.strip():
            at += 1
        elif line.startswith("```"):
            at += 1
            out += literal(taken(re.compile(r"(?!```)")))
            at += 1
        elif line.startswith("    "):
            block = taken(re.compile(r"    |$"))
            out += literal(textwrap.dedent("\n".join(block)).rstrip().split("\n"))
        elif line.startswith("### "):
            out.append(f".SS {inline(line[4:])}")
            at += 1
        elif line.startswith("## "):
            out.append(f".SH {inline(line[3:].upper())}")
            at += 1
        elif line.startswith("|"):
            # A blank line in front of a table would be no request; .PP may not stand in front of one either.
            out += [".PP", *table(taken(re.compile(r"\|")))]
        elif item := re.match(r"(-|\d+\.) +", line):
            at += 1
            text = [line[item.end():], *taken(re.compile(r"\s+\S"))]
            mark = "\\(bu 2" if item.group(1) == "-" else f"{item.group(1)} 4"
            out += [f".IP {mark}", *filled(" ".join(text))]
        else:
            at += 1
            text = [line, *taken(re.compile(r"(?!```|#|\||- |\d+\. )\S"))]
            out += [".PP", *filled(" ".join(text))]
    # A paragraph begins with the section, without saying so.
    return [line for i, line in enumerate(out) if line != ".PP" or not out[i - 1].startswith((".SH", ".SS"))]


def sections_of(document: str) -> dict[str, str]:
    """The sections of a document by their headings; what stands before the first is under ""."""
    parts = re.split(r"^## (.+)\n", (DOCS / document).read_text("utf-8"), flags=re.MULTILINE)
    intro = re.sub(r"\A# .+\n", "", parts[0])
    return {"": intro, **dict(zip(parts[1::2], parts[2::2]))}


def joined(sections: dict[str, str]) -> str:
    return "".join(f"## {heading}\n{text}\n" for heading, text in sections.items())


def run(client: str, *words: str) -> str:
    return subprocess.run([client, *words], check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout


def verbs_of(client: str, path: list[str]) -> list[list[str]]:
    """The verbs below this one, each as the words that lead to it; a family comes before its members."""
    found: list[list[str]] = []
    in_list = False
    for line in run(client, *path, "--help").split("\n"):
        in_list = line == "Subcommands:" or (in_list and line.startswith(" "))
        if in_list and (verb := re.match(r"  (\S+)", line)):
            below = [*path, verb.group(1)]
            found += [below, *verbs_of(client, below)]
    return found


def entries_of(help_text: str, heading: str) -> list[tuple[str, str]]:
    """The names and descriptions of one list of the help."""
    block = re.search(rf"^{heading}:\n((?: .*\n)+)", help_text, flags=re.MULTILINE)
    entries: list[tuple[str, str]] = []
    for line in block.group(1).splitlines() if block else []:
        if line.startswith("   "):
            entries[-1] = (entries[-1][0], f"{entries[-1][1]} {line.strip()}".strip())
        else:
            name, _, description = line.strip().partition("  ")
            entries.append((name, description.strip()))
    return entries


def shown_name(name: str) -> str:
    """"-b,--batch N (5000)" as "-b, --batch N"."""
    names, _, value = name.partition(" ")
    value = re.sub(r" ?(\([^)]*\)|\.\.\.)", "", value)
    return f"\\fB{escaped(names.replace(',', ', '))}\\fR" + (f" \\fI{escaped(value)}\\fR" if value else "")


def usual_of(name: str) -> str:
    """What holds if nothing is said."""
    usual = re.search(r" \(([^)]*)\)", name)
    return f" {usual.group(1)} if not given." if usual else ""


def listed(entries: list[tuple[str, str]]) -> list[str]:
    out: list[str] = []
    for name, description in entries:
        text = description.rstrip(".") + "." + usual_of(name)
        out += [".TP", shown_name(name), *filled(prose_of_help(text))]
    return out


def prose_of_help(text: str) -> str:
    """Help is plain text: what stands there means itself."""
    return text.replace("`", "'").replace("**", "* *")


def reference(client: str) -> list[str]:
    """Each verb with its options, as --help has them."""
    general = entries_of(run(client, "--help"), "Options")
    out = [".SH OPTIONS", "These may stand in front of a verb or behind it.", *listed(general)]
    out.append(".SH VERBS IN DETAIL")
    common = {name.split(" ")[0] for name, _ in general}
    for verb in verbs_of(client, []):
        help_text = run(client, *verb, "--help")
        description, usage = help_text.split("\n")[:2]
        usage = usage.removeprefix("Usage: ").replace(" [OPTIONS]", " [OPTION...]")
        options = [entry for entry in entries_of(help_text, "Options") if entry[0].split(" ")[0] not in common]
        out += [f".SS {escaped(' '.join(verb))}", f".B {escaped(usage)}", ".PP",
                *filled(prose_of_help(description.rstrip(".") + "."))]
        out += listed(entries_of(help_text, "Positionals") + options)
        if example := re.search(r"^Example:\n((?:  .*\n)+)", help_text, flags=re.MULTILINE):
            out += literal(textwrap.dedent(example.group(1)).rstrip().split("\n"))
    return out


def rendered(page: Page, date: str, version: str, more: list[str]) -> str:
    out = ["'\\\" t", '.\\" Written by man/manuals.py from docs/ and the help of morvane.',
           f'.TH {escaped(page.name).upper()} {page.section} "{date}" "Morvane {version}" "Morvane"',
           # Words pushed apart look poor in the narrow columns of a table.
           ".ad l", ".nr HY 0", ".nh", ".SH NAME", f"{escaped(page.name)} \\- {page.title}"]
    if page.synopsis:
        out += [".SH SYNOPSIS", *"\n.br\n".join(page.synopsis).split("\n")]
    out += [".SH DESCRIPTION", *converted(page.description), *more, *converted(page.body)]
    others = [f".BR {escaped(name)} ({section}){',' if i + 1 < len(page.see_also) else ''}"
              for i, (name, section) in enumerate(each.rstrip(")").split("(") for each in page.see_also)]
    text = "\n".join([*out, ".SH SEE ALSO", *others]) + "\n"
    # A first paragraph needs no mark of its own.
    return text.replace(".SH DESCRIPTION\n.PP\n", ".SH DESCRIPTION\n")


def pages() -> dict[str, Page]:
    client = sections_of("client.md")
    operations = sections_of("operations.md")
    protocol = sections_of("protocol.md")
    data = sections_of("data-format.md")
    configuration = operations.pop("Configuration")
    intro = operations.pop("")
    client_intro = client.pop("")
    verbs = joined({"Verbs": client.pop("Verbs")})
    every = ["morvane(1)", "morvane-config(5)", "morvane-data(5)", "morvane-protocol(7)", "morvaneserver(8)"]

    def others(but: str) -> list[str]:
        return [each for each in every if each != but]

    return {
        "morvane": Page(
            "morvane", 1, "tell texts apart, with the help of a Morvane server",
            ["\\fBmorvane\\fR [\\fIOPTION\\fR...] \\fIVERB ARGUMENT\\fR..."], client_intro + verbs, joined(client),
            others("morvane(1)")),
        "config": Page(
            "morvane-config", 5, "configuration of a Morvane server", [], configuration, "",
            others("morvane-config(5)")),
        "data": Page(
            "morvane-data", 5, "classifier files of a Morvane server", [], data.pop(""), joined(data),
            others("morvane-data(5)")),
        "protocol": Page(
            "morvane-protocol", 7, "requests to a Morvane server, and its answers", [], protocol.pop(""),
            joined(protocol), others("morvane-protocol(7)")),
        "server": Page(
            "morvaneserver", 8, "server that learns to tell texts apart",
            ["\\fBmorvaneserver \\-config\\fR \\fIFILE\\fR [\\fB\\-quiet\\fR]",
             "\\fBmorvaneserver \\-test \\-config\\fR \\fIFILE\\fR [\\fB\\-quiet\\fR]",
             "\\fBmorvaneserver \\-install \\-config\\fR \\fIFILE\\fR",
             "\\fBmorvaneserver \\-uninstall\\fR | \\fB\\-start\\fR | \\fB\\-stop\\fR"],
            intro, joined(operations), others("morvaneserver(8)")),
    }


def main() -> int:
    client, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    folder.mkdir(parents=True, exist_ok=True)
    version = re.search(r"VERSION ([0-9.]+)", re.sub(r"cmake_minimum_required.*", "", PROJECT.read_text("utf-8")))
    assert version is not None
    # As old as what is told, unless a package says otherwise, so that the same sources give the same pages.
    newest = max(path.stat().st_mtime for path in DOCS.glob("*.md"))
    moment = float(os.environ.get("SOURCE_DATE_EPOCH", newest))
    date = datetime.datetime.fromtimestamp(moment, datetime.timezone.utc).date().isoformat()
    for key, page in pages().items():
        more = reference(client) if key == "morvane" else []
        path = folder / f"{page.name}.{page.section}"
        path.write_text(rendered(page, date, version.group(1), more), "utf-8")
    return 0


if __name__ == "__main__":
    sys.exit(main())

"""A terminal that remembers what it showed when, and draws it as a picture that stands alone.

It knows what programs write that keep to lines: text, colours, line ends, carriage returns, erasing, and
steps of the cursor. It knows no scrolling: it is as high as what it was shown.
"""

from __future__ import annotations

import re
import unicodedata
from dataclasses import dataclass, field, replace
from xml.sax.saxutils import escape

TOKEN = re.compile(r"\x1b\[([0-9;?]*)([A-Za-z])|\x1b\][^\x07]*\x07|([\x00-\x1f])|([^\x00-\x1f\x1b]+)")

# The first 16 colours, chosen for the picture's dark ground; the others are the cube and the greys of xterm.
BASE = [
    *["#3b4048", "#f07178", "#a5d072", "#f2c55c", "#7aa8f0", "#cf8ef0", "#5fc7c7", "#c8cdd6"],
    *["#7f8794", "#ff8b92", "#bfe68d", "#ffd97d", "#9cc1ff", "#dfaaff", "#80dede", "#ffffff"],
]
GROUND = "#1c2027"
FRAME = "#4a515e"
TEXT = "#d6dae2"


def colour(number: int) -> str:
    if number < 16:
        return BASE[number]
    if number >= 232:
        return "#" + 3 * f"{8 + 10 * (number - 232):02x}"
    steps = [0, 95, 135, 175, 215, 255]
    number -= 16
    return "#" + "".join(f"{steps[number // power % 6]:02x}" for power in (36, 6, 1))


@dataclass(frozen=True)
class Style:
    ink: str | None = None
    paper: str | None = None
    bold: bool = False
    dim: bool = False
    reverse: bool = False

    def after(self, parameters: list[int]) -> Style:
        """What "select graphic rendition" makes of it."""
        style = self
        rest = iter(parameters or [0])
        for code in rest:
            if code == 0:
                style = Style()
            elif code in (1, 2, 7):
                style = replace(style, **{{1: "bold", 2: "dim", 7: "reverse"}[code]: True})
            elif code == 22:
                style = replace(style, bold=False, dim=False)
            elif code == 27:
                style = replace(style, reverse=False)
            elif code % 10 == 8 and code in (38, 48):
                kind = next(rest, 0)
                taken = [next(rest, 0) for _ in range(3 if kind == 2 else 1)]
                value = colour(taken[0]) if kind == 5 else "#" + "".join(f"{part:02x}" for part in taken)
                style = replace(style, **{"ink" if code == 38 else "paper": value})
            elif code in (39, 49):
                style = replace(style, **{"ink" if code == 39 else "paper": None})
            elif 30 <= code <= 37 or 90 <= code <= 97:
                style = replace(style, ink=colour(code - 30 if code < 40 else code - 82))
            elif 40 <= code <= 47 or 100 <= code <= 107:
                style = replace(style, paper=colour(code - 40 if code < 50 else code - 92))
        return style


Cell = tuple[str, Style]
EMPTY: Cell = (" ", Style())


@dataclass
class Row:
    """A line of the screen: what stands in it now, and what stood in it since when, in seconds."""

    cells: list[Cell] = field(default_factory=list)
    past: list[tuple[float, list[Cell]]] = field(default_factory=list)


class Terminal:
    def __init__(self) -> None:
        self.rows: list[Row] = [Row()]
        self.line = 0
        self.column = 0
        self.style = Style()

    def show(self, text: str, now: float) -> None:
        """Takes what a program wrote at this time."""
        for match in TOKEN.finditer(text):
            parameters, command, control, plain = match.groups()
            if plain is not None:
                for character in plain:
                    self._put(character)
            elif control is not None:
                self._control(control)
            elif command is not None and "?" not in parameters:
                numbers = [int(number or 0) for number in parameters.split(";")] if parameters else []
                self._command(command, numbers)
        for row in self.rows:
            if row.cells != (row.past[-1][1] if row.past else []):
                row.past.append((now, list(row.cells)))

    def _put(self, character: str) -> None:
        cells = self.rows[self.line].cells
        cells.extend([EMPTY] * (self.column + 1 - len(cells)))
        cells[self.column] = (character, self.style)
        self.column += 1
        if unicodedata.east_asian_width(character) in "WF":
            cells.insert(self.column, ("", self.style))
            self.column += 1

    def _control(self, control: str) -> None:
        if control == "\n":
            self._to_line(self.line + 1)
        elif control == "\r":
            self.column = 0
        elif control == "\b":
            self.column = max(self.column - 1, 0)
        elif control == "\t":
            self.column += 8 - self.column % 8

    def _command(self, command: str, numbers: list[int]) -> None:
        first = numbers[0] if numbers else 0
        if command == "m":
            self.style = self.style.after(numbers)
        elif command == "K":
            cells = self.rows[self.line].cells
            if first == 0:
                del cells[self.column :]
            else:
                cells[: len(cells) if first == 2 else self.column + 1] = [EMPTY] * self.column
        elif command == "J" and first == 0:
            del self.rows[self.line].cells[self.column :]
            for row in self.rows[self.line + 1 :]:
                row.cells.clear()
        elif command in "AB":
            self._to_line(max(self.line + (first or 1) * (-1 if command == "A" else 1), 0))
        elif command in "CD":
            self.column = max(self.column + (first or 1) * (1 if command == "C" else -1), 0)
        elif command == "G":
            self.column = max(first - 1, 0)

    def _to_line(self, line: int) -> None:
        self.line = line
        self.rows.extend(Row() for _ in range(line + 1 - len(self.rows)))


# Sizes of the picture, in its own units.
WIDTH = 8.4
HEIGHT = 19.0
SIZE = 14
MARGIN = 16.0
TITLE = 30.0


def _runs(cells: list[Cell]) -> list[tuple[int, str, Style]]:
    """Neighbours of one style, with the column where they begin."""
    runs: list[tuple[int, str, Style]] = []
    for column, (character, style) in enumerate(cells):
        if runs and runs[-1][2] == style:
            runs[-1] = (runs[-1][0], runs[-1][1] + character, style)
        else:
            runs.append((column, character, style))
    return runs


def _drawn(cells: list[Cell], y: float) -> str:
    parts: list[str] = []
    columns = [column for column, _, _ in _runs(cells)] + [len(cells)]
    for (column, text, style), end in zip(_runs(cells), columns[1:]):
        x, width = MARGIN + column * WIDTH, (end - column) * WIDTH
        ink, paper = style.ink or TEXT, style.paper
        if style.reverse:
            ink, paper = paper or GROUND, ink
        if paper is not None:
            area = f'x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{HEIGHT}"'
            parts.append(f'<rect {area} fill="{paper}"/>')
        bare = text.strip()
        if not bare:
            continue
        lead = len(text) - len(text.lstrip())
        wide = sum(2 if unicodedata.east_asian_width(character) in "WF" else 1 for character in bare)
        look = "" if ink == TEXT else f' fill="{ink}"'
        look += ' font-weight="bold"' if style.bold else ""
        look += ' opacity=".6"' if style.dim else ""
        # The length keeps columns in line whatever font the reader has.
        parts.append(
            f'<text x="{x + lead * WIDTH:.1f}" y="{y + 14:.1f}" textLength="{wide * WIDTH:.1f}"{look}>'
            f"{escape(bare)}</text>"
        )
    return "".join(parts)


def picture(terminal: Terminal, columns: int, title: str, description: str) -> str:
    """An SVG that shows the lines as they came, once, and then stays. Where nothing moves, all is there."""
    rows = terminal.rows
    while rows and not rows[-1].past:
        rows = rows[:-1]
    width = 2 * MARGIN + columns * WIDTH
    height = TITLE + MARGIN + len(rows) * HEIGHT + MARGIN / 2
    body: list[str] = []
    for number, row in enumerate(rows):
        y = TITLE + MARGIN / 2 + number * HEIGHT
        for (since, cells), until in zip(row.past, [time for time, _ in row.past[1:]] + [None]):
            drawn = _drawn(cells, y)
            if not drawn:
                continue
            if until is None:
                body.append(f'<g class="k" style="animation-delay:{since:.2f}s">{drawn}</g>')
            elif until - since >= 0.02:
                life = f"animation-delay:{since:.2f}s;animation-duration:{until - since:.2f}s"
                body.append(f'<g class="p" style="{life}">{drawn}</g>')
    lights = "".join(
        f'<circle cx="{20 + 18 * i}" cy="{TITLE / 2 + 1}" r="5.5" fill="{fill}"/>'
        for i, fill in enumerate(["#f07178", "#f2c55c", "#a5d072"])
    )
    size = f'viewBox="0 0 {width:.0f} {height:.0f}" width="{width:.0f}" height="{height:.0f}"'
    label = escape(description, {'"': "&quot;"})
    frame = f'x=".5" y=".5" width="{width - 1:.0f}" height="{height - 1:.0f}" rx="9"'
    return f"""<svg xmlns="http://www.w3.org/2000/svg" {size} role="img" aria-label="{label}">
<style>
text{{font-family:ui-monospace,SFMono-Regular,Menlo,Consolas,"DejaVu Sans Mono","Liberation Mono",monospace;
font-size:{SIZE}px;white-space:pre}}
.k{{animation:k .01s both}}.p{{opacity:0;animation:p 1s}}
@keyframes k{{from{{opacity:0}}to{{opacity:1}}}}@keyframes p{{from,to{{opacity:1}}}}
@media (prefers-reduced-motion:reduce){{.k,.p{{animation:none}}}}
</style>
<rect {frame} fill="{GROUND}" stroke="{FRAME}"/>
{lights}
<g fill="{TEXT}" xml:space="preserve">
<text x="{width / 2:.0f}" y="{TITLE / 2 + 6}" text-anchor="middle" opacity=".7">{escape(title)}</text>
{chr(10).join(body)}
</g>
</svg>
"""

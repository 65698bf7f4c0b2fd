"""The terminal that the pictures of the documentation are taken of."""

from __future__ import annotations

import pathlib
import sys
import unittest
from xml.etree import ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts" / "demo"))

from terminal import BASE, GROUND, TEXT, Terminal, colour, picture  # noqa: E402

SVG = "{http://www.w3.org/2000/svg}"


def screen(*written: str) -> Terminal:
    terminal = Terminal()
    for moment, text in enumerate(written):
        terminal.show(text, moment)
    return terminal


class TerminalTest(unittest.TestCase):
    def test_shows_what_a_terminal_shows(self) -> None:
        cases = [
            ("one\r\ntwo", ["one", "two"]),
            ("slow\rfast", ["fast"]),
            ("10 %\r9 %\x1b[K", ["9 %"]),
            ("gone\r\x1b[2Knew", ["new"]),
            ("a\r\nb\r\nc\x1b[2A!\x1b[2B?", ["a!", "b", "c ?"]),
            ("a\tb", ["a       b"]),
            ("abc\b\b-", ["a-c"]),
            ("\x1b[?25lhidden cursor\x1b[?25h\x1b]0;title\x07.", ["hidden cursor."]),
            ("\x1b[5Gx\x1b[2Dy", ["   yx"]),
            ("a\r\nb\r\nc\x1b[1A\x1b[J", ["a", "b", ""]),
            ("日本|", ["日本|"]),
        ]
        for text, lines in cases:
            with self.subTest(text):
                rows = screen(text).rows
                self.assertEqual(["".join(cell for cell, _ in row.cells).rstrip() for row in rows], lines)

    def test_keeps_colours(self) -> None:
        cases = [
            ("\x1b[31m", BASE[1], None),
            ("\x1b[1;92m", BASE[10], None),
            ("\x1b[38;5;196;48;5;244m", "#ff0000", "#808080"),
            ("\x1b[38;2;1;2;255m", "#0102ff", None),
            ("\x1b[31;44m\x1b[39m", None, BASE[4]),
            ("\x1b[31m\x1b[m", None, None),
        ]
        for text, ink, paper in cases:
            with self.subTest(text):
                style = screen(text + "x").rows[0].cells[0][1]
                self.assertEqual((style.ink, style.paper), (ink, paper))
        self.assertEqual(colour(231), "#ffffff")

    def test_picture_has_each_state_in_its_time(self) -> None:
        terminal = screen("1 <&>", "\r2 \x1b[7mback\x1b[0m", "\r\nlast")
        groups = list(ElementTree.fromstring(picture(terminal, 80, "t", 'a "title"')).iter(SVG + "g"))
        states = {"".join(group.itertext()): group.get("style") for group in groups if group.get("class")}
        self.assertEqual(
            states,
            {
                "1 <&>": "animation-delay:0.00s;animation-duration:1.00s",
                "2back": "animation-delay:1.00s",
                "last": "animation-delay:2.00s",
            },
        )
        back = [text for group in groups for text in group if text.text == "back"]
        self.assertEqual(back[0].get("fill"), GROUND)
        papers = [shape.get("fill") for group in groups for shape in group if shape.tag == SVG + "rect"]
        self.assertIn(TEXT, papers)


if __name__ == "__main__":
    unittest.main()

"""docs/operations.md tells each line that the log can have, in the words of the code, and no others."""

from __future__ import annotations

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
LITERAL = r'"((?:[^"\\]|\\.)*)"'


def sources() -> dict[str, str]:
    """The code, with string literals that stand behind each other joined as the compiler does."""
    files = [*ROOT.glob("src/**/*.cpp"), *ROOT.glob("src/**/*.h"), *ROOT.glob("apps/morvaneserver/*.cpp")]
    return {str(file.relative_to(ROOT)): re.sub(r'"\s*\n\s*"', "", file.read_text("utf-8")) for file in files}


def logged(text: str) -> set[str]:
    """With what the lines begin that this source logs: literals in the call, and those put into a stream."""
    log = r"log(?:\.|->)(?:log|error|test)\("
    found = re.findall(rf"(?i){log}\s*(?:std::string\()?{LITERAL}", text)
    for call in re.finditer(rf"(?i){log}(\w+)\.str\(\)", text):
        stream = call.group(1)
        # What was put in since the stream was last empty.
        before = text[: call.start()]
        empty = [end.end() for end in re.finditer(rf" {stream};|{stream}\.setPosition\(0\)", before)]
        found += re.findall(rf"\b{stream} << {LITERAL}", before[empty[-1] if empty else 0 :])[:1]
    for variable in set(re.findall(rf"(?i){log}(\w+)\)", text)):
        found += re.findall(rf"\b{variable} =\s*(?:std::string\()?{LITERAL}", text)
    return {line.replace(r"\n", " ").replace("  ", " ").strip() for line in found}


class LogLinesTest(unittest.TestCase):
    operations = (ROOT / "docs/operations.md").read_text("utf-8")
    log = operations[operations.index("\n## Log\n") : operations.index("\n## The built-in test\n")]

    def test_every_line_of_the_code_is_told(self) -> None:
        beginnings = {line: file for file, text in sources().items() for line in logged(text)}
        self.assertGreater(len(beginnings), 35)
        for line, file in beginnings.items():
            with self.subTest(file, line=line):
                # A line may begin with a word that the table gives only once for several.
                words = re.sub(r"[ .:]+$", "", line).split(" ")
                told = " ".join(words[:5])
                alternative = words[0] == "Successfully" and f"/ {words[1]}" in self.log
                self.assertTrue(told in self.log or alternative, f"{told!r} isn't in docs/operations.md")

    def test_every_line_told_is_one_of_the_code(self) -> None:
        code = "\n".join(sources().values()).replace(r"\n", " ")
        rows = re.findall(r"^\| (.*?) \| (?:Log|Error|Failure|Test) \|", self.log, re.MULTILINE)
        self.assertGreater(len(rows), 35)
        for row in rows:
            for line in row.split(" / "):
                # What stands in capitals, or for a value, is put in by the code.
                for part in re.split(r"\b[A-Z]+\b|'|\.\.\. |: std::.*|\.\.\.$", line):
                    with self.subTest(line, part=part):
                        self.assertIn(part.strip(), code)


if __name__ == "__main__":
    unittest.main()

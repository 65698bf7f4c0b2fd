"""Does what guides tell their readers to do, word for word, and compares what comes out.

    MORVANE_PROGRAM=build/debug/bin/morvaneserver python3 tests/python/run_guide.py [--update] GUIDE...

Each guide gets a server of its own and a folder of its own with copies of examples/ and clients/. All its
blocks are run there by one bash, which ends at the first command that fails:

    ```sh        commands. The built programs are on the PATH, and MORVANE_SERVER names the server, whose port
                 also takes the place of 9400. ROOT and LOGS are the folders of its classifiers and its log
    ```python    a program, with clients/python/morvane.py at hand
    ```text      or xml, directly behind one of these: what it prints. "…" stands for any characters of a
                 line, and a line of nothing else for any lines

Blocks of other kinds are only read. With --update, outputs that differ are written into the guide, to be
looked at before they are kept.
"""

from __future__ import annotations

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass

from served import Served

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROGRAM = pathlib.Path(os.environ["MORVANE_PROGRAM"]).resolve()
BLOCK = re.compile(
    r"^```(sh|python)\n(.*?)^```\n(?:\n?```(?:text|xml)\n(.*?)^```\n)?", re.MULTILINE | re.DOTALL
)
END_OF_BLOCK = "\x1e"


@dataclass
class Step:
    """A block that is run. The span of what it shall print is that in the guide; None if anything will do."""

    language: str
    code: str
    line: int
    output: tuple[int, int] | None

    def script(self, port: int) -> str:
        code = self.code
        if self.language == "python":
            code = f"python3 - <<'END OF PYTHON'\n{code}END OF PYTHON\n"
        return re.sub(r"\b9400\b", str(port), code) + f"printf '{END_OF_BLOCK}'\n"


def steps_of(guide: str) -> list[Step]:
    return [
        Step(
            block.group(1),
            block.group(2),
            guide.count("\n", 0, block.start()) + 1,
            None if block.group(3) is None else block.span(3),
        )
        for block in BLOCK.finditer(guide)
    ]


def run(steps: list[Step]) -> tuple[bool, list[str]]:
    """What each step printed, up to the first one that failed; True if none did."""
    with Served(PROGRAM) as server, tempfile.TemporaryDirectory() as folder:
        for name in ["examples", "clients"]:
            shutil.copytree(ROOT / name, pathlib.Path(folder, name))
        environment = {
            "HOME": folder,
            "ROOT": str(server.folder / "classifiers"),
            "LOGS": str(server.folder / "logs"),
            "MORVANE_SERVER": f"127.0.0.1:{server.port}",
            "PATH": f"{PROGRAM.parent}:{os.environ['PATH']}",
            "PYTHONPATH": str(pathlib.Path(folder, "clients", "python")),
            "PYTHONDONTWRITEBYTECODE": "1",
            "LC_ALL": "C.UTF-8",
        }
        done = subprocess.run(
            ["bash", "-e", "-o", "pipefail", "-c", "".join(step.script(server.port) for step in steps)],
            stdin=subprocess.DEVNULL,
            cwd=folder,
            env=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            timeout=600,
        )
        text = re.sub(rf"(127\.0\.0\.1:|port ){server.port}\b", r"\g<1>9400", done.stdout)
        text = text.replace(folder, "…")
    outputs = text.split(END_OF_BLOCK)
    good = done.returncode == 0 and len(outputs) == len(steps) + 1
    return good, outputs[:-1] if good else outputs


def lines_of(text: str) -> list[str]:
    return [line.rstrip() for line in text.strip("\n").split("\n")]


def matches(expected: str, output: str) -> bool:
    pattern = ""
    for line in lines_of(expected):
        pattern += r"(?:.*\n)*?" if line == "…" else ".*?".join(map(re.escape, line.split("…"))) + r"\n"
    return re.fullmatch(pattern, "".join(line + "\n" for line in lines_of(output))) is not None


def check(path: pathlib.Path, update: bool) -> bool:
    guide = path.read_text("utf-8")
    steps = steps_of(guide)
    if not steps:
        print(f"{path}: nothing to run")
        return False
    good, outputs = run(steps)
    if not good:
        at = f"{path}:{steps[len(outputs) - 1].line}"
        print(f"{at}: this failed:\n{steps[len(outputs) - 1].code}--- with:\n{outputs[-1]}")
        return False
    # From the end, so that what is written doesn't move what comes before it.
    for step, output in reversed(list(zip(steps, outputs))):
        if step.output is None or matches(guide[slice(*step.output)], output):
            continue
        good = False
        print(f"{path}:{step.line}: should print:\n{guide[slice(*step.output)]}--- and printed:\n{output}")
        if update:
            begin, end = step.output
            guide = guide[:begin] + "\n".join(lines_of(output)) + "\n" + guide[end:]
    if update:
        path.write_text(guide, "utf-8")
    print(f"{path}: {len(steps)} blocks run, {'all' if good else 'not all'} as told")
    return good


if __name__ == "__main__":
    arguments = sys.argv[1:]
    results = [check(pathlib.Path(name), "--update" in arguments) for name in arguments if name != "--update"]
    sys.exit(0 if results and all(results) else 1)

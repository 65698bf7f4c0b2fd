"""Runs commands in a terminal of its own, with the built programs, and draws what it saw.

    MORVANE_PROGRAM=build/release/bin/morvaneserver python3 scripts/demo/record.py FOLDER COMMANDS PICTURE.svg

FOLDER is where the commands run; COMMANDS is a file with one a line, of which only those behind a line "---"
are shown. What they print is real, and so are the times between it, but for long pauses, which are cut short.
The typing is ours.
"""

from __future__ import annotations

import codecs
import fcntl
import os
import pathlib
import pty
import struct
import sys
import termios
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests" / "python"))

from served import Served  # noqa: E402
from terminal import Terminal, picture  # noqa: E402

COLUMNS = 92
LINES = 60
LONGEST_PAUSE = 0.5  # seconds
BEFORE_RETURN = 0.4
TO_READ = 1.2
TYPED_AT_ONCE = 3
TYPING = 0.09

PROMPT = "\x1b[1;32m$\x1b[0m "


def run(command: str, environment: dict[str, str]) -> list[tuple[float, str]]:
    """What a command writes to a terminal, with the seconds since its start."""
    child, screen = pty.fork()
    if child == 0:
        os.execvpe("bash", ["bash", "-c", command], environment)
    fcntl.ioctl(screen, termios.TIOCSWINSZ, struct.pack("HHHH", LINES, COLUMNS, 0, 0))
    decoder = codecs.getincrementaldecoder("utf-8")()
    begin = time.monotonic()
    written: list[tuple[float, str]] = []
    while True:
        try:
            block = os.read(screen, 65536)
        except OSError:  # how a terminal says that nobody is left to write to it
            block = b""
        if not block:
            break
        written.append((time.monotonic() - begin, decoder.decode(block)))
    os.close(screen)
    _, status = os.waitpid(child, 0)
    if status != 0:
        raise RuntimeError(f"{command}: ended with {status}: {''.join(text for _, text in written)}")
    return written


def record(terminal: Terminal, command: str, now: float, environment: dict[str, str]) -> float:
    terminal.show(PROMPT, now)
    for i in range(0, len(command), TYPED_AT_ONCE):
        now += TYPING
        terminal.show(command[i : i + TYPED_AT_ONCE], now)
    now += BEFORE_RETURN
    terminal.show("\r\n", now)
    before = 0.0
    for moment, text in run(command, environment):
        now += min(moment - before, LONGEST_PAUSE)
        before = moment
        terminal.show(text, now)
    return now + TO_READ


def main() -> None:
    folder, commands, target = sys.argv[1:]
    program = pathlib.Path(os.environ["MORVANE_PROGRAM"]).resolve()
    before, _, shown = pathlib.Path(commands).read_text("utf-8").rpartition("---\n")
    terminal = Terminal()
    with Served(program) as server:
        environment = {
            "HOME": str(server.folder),
            "LC_ALL": "C.UTF-8",
            "MORVANE_SERVER": f"127.0.0.1:{server.port}",
            "PATH": f"{program.parent}:{os.environ['PATH']}",
            "TERM": "xterm-256color",
        }
        os.chdir(folder)
        for command in before.splitlines():
            run(command, environment)
        now = 0.5
        lines = shown.splitlines()
        for command in lines:
            now = record(terminal, command, now, environment)
    description = "A terminal: " + "; ".join(lines)
    pathlib.Path(ROOT, target).write_text(picture(terminal, COLUMNS, "morvane", description), "utf-8")


if __name__ == "__main__":
    main()

"""Types into real shells, presses the tabulator, and looks at the command line that comes of it.

    MORVANE_PROGRAM=... MORVANE_CLIENT=... python3 tests/python/completion_test.py SHELL

SHELL is bash, zsh or fish. Where it isn't installed, the test ends with 77, which CTest shows as skipped.
"""

from __future__ import annotations

import os
import pathlib
import pty
import select
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

from served import Served, free_port

COMPLETION = pathlib.Path(__file__).resolve().parents[2] / "completion"
CLIENT = pathlib.Path(os.environ["MORVANE_CLIENT"]).resolve()
SKIPPED = 77

# What is typed in front of a tabulator, and the words that stand there afterwards. PORT is that of the server,
# CLOSED one where nobody listens.
CASES = [
    ("morvane remove-c", ["morvane", "remove-class"]),
    ("morvane file mer", ["morvane", "file", "merge"]),
    ("morvane file merge --ou", ["morvane", "file", "merge", "--output"]),
    ("morvane classify --time", ["morvane", "classify", "--timeout"]),
    ("morvane classify lang", ["morvane", "classify", "languages"]),
    ("morvane --json classify lang", ["morvane", "--json", "classify", "languages"]),
    ("morvane train languages two", ["morvane", "train", "languages", "two words"]),
    ("morvane train languages gr", ["morvane", "train", "languages", "größer"]),
    ("morvane train languages colon:a", ["morvane", "train", "languages", "colon:and=equals"]),
    ("morvane remove-class languages 'quoted $H", ["morvane", "remove-class", "languages", "quoted $HOME"]),
    ("morvane file info some", ["morvane", "file", "info", "some file.dat"]),
    ("morvane --server=127.0.0.1:PORT info lang", ["morvane", "--server=127.0.0.1:PORT", "info", "languages"]),
    # Where there is nothing to offer, nothing is.
    ("morvane train strange two", ["morvane", "train", "strange", "two"]),
    ("morvane create lang", ["morvane", "create", "lang"]),
    ("morvane --server 127.0.0.1:CLOSED train languages two",
     ["morvane", "--server", "127.0.0.1:CLOSED", "train", "languages", "two"]),
]

START = {
    "bash": (["bash", "--norc", "--noprofile", "-i"], "bind 'set bell-style none'; . {completion}/morvane.bash"),
    "zsh": (["zsh", "-f", "-i"], "fpath=({completion} $fpath); autoload -Uz compinit; compinit -u -D"),
    "fish": (["fish", "--no-config", "-i"], "source {completion}/morvane.fish"),
}


class Shell:
    """An interactive shell on a terminal of its own."""

    def __init__(self, name: str, environment: dict[str, str], folder: str) -> None:
        command, setup = START[name]
        self._pid, self._terminal = pty.fork()
        if self._pid == 0:
            os.chdir(folder)
            os.execvpe(command[0], command, environment)
        self._seen = ""
        self._folder = folder
        show = pathlib.Path(folder, "bin", "show")
        show.parent.mkdir(exist_ok=True)
        show.write_text(f"#!/bin/sh\nprintf '%s\\0' \"$@\" > '{folder}/shown'; echo END\n")
        show.chmod(0o755)
        self.run(setup.format(completion=shlex.quote(str(COMPLETION))))

    def run(self, line: str) -> str:
        """Runs the line and gives what came up to its end, which `echo` marks so that typing it doesn't."""
        return self.type(line + "; echo E''ND\r", "END")

    def type(self, keys: str, until: str) -> str:
        begin = len(self._seen)
        os.write(self._terminal, keys.encode())
        limit = time.monotonic() + 60
        while until not in self._seen[begin:]:
            ready, _, _ = select.select([self._terminal], [], [], max(0.0, limit - time.monotonic()))
            if not ready:
                raise RuntimeError("The shell hangs:\n" + self._seen[begin:])
            self._seen += os.read(self._terminal, 65536).decode("utf-8", "replace")
        return self._seen[begin:]

    def complete(self, line: str) -> list[str]:
        """The words of the line after a tabulator at its end."""
        # Ctrl-A leads back to the front, where the program `show` takes the line for its arguments.
        self.type(line + "\t\x01show \r", "END")
        return pathlib.Path(self._folder, "shown").read_text("utf-8").split("\0")[:-1]

    def end(self) -> None:
        os.close(self._terminal)  # hangs up
        os.waitpid(self._pid, 0)


def client(port: int, environment: dict[str, str], *arguments: str) -> None:
    subprocess.run(
        [CLIENT, "--server", f"127.0.0.1:{port}", *arguments],
        env=environment,
        check=True,
        stdout=subprocess.DEVNULL,
    )


def main() -> int:
    name = sys.argv[1]
    if shutil.which(name) is None:
        print(f"{name} isn't installed.")
        return SKIPPED
    failures = 0
    with Served(os.environ["MORVANE_PROGRAM"]) as server, tempfile.TemporaryDirectory() as folder:
        environment = {
            "HOME": folder,
            "PATH": f"{CLIENT.parent}:{folder}/bin:{os.environ['PATH']}",
            "MORVANE_SERVER": f"127.0.0.1:{server.port}",
            "LC_ALL": "C.UTF-8",
            "TERM": "xterm",
        }
        pathlib.Path(folder, "some file.dat").touch()
        client(server.port, environment, "create", "languages", "two words", "größer", "colon:and=equals")
        client(server.port, environment, "add-class", "languages", "quoted $HOME")
        closed = free_port()
        shell = Shell(name, environment, folder)
        for typed, expected in CASES:
            ports = {"PORT": str(server.port), "CLOSED": str(closed)}
            for word, port in ports.items():
                typed = typed.replace(word, port)
                expected = [each.replace(word, port) for each in expected]
            words = shell.complete(typed)
            if words != expected:
                failures += 1
                print(f"{typed!r} became {words}, not {expected}")
        shell.end()
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())

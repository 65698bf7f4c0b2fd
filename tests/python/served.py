"""The built server in a folder of its own, for tests in Python."""

from __future__ import annotations

import os
import pathlib
import shutil
import socket
import subprocess
import tempfile
import time
from types import TracebackType

CONFIGURATION = """<?xml version="1.0" encoding="utf-8" ?>
<morvane xmlns="http://morvane.example/1/config/ConfigSchema">
<port>{port}</port><maxInput>{max_input}</maxInput><maxClients>8</maxClients>
<clientQueueSize>50</clientQueueSize><classifierRootPath></classifierRootPath><logLevel>log</logLevel>
<logMemory>false</logMemory><saveRequests>false</saveRequests>
</morvane>
"""


def free_port() -> int:
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return int(probe.getsockname()[1])


class Served:
    """A server that takes requests from the beginning of a `with` block to its end."""

    def __init__(self, program: str | os.PathLike[str], max_input: int = 20_000_000) -> None:
        self._program = pathlib.Path(program)
        self._max_input = max_input
        self.port = 0

    def __enter__(self) -> Served:
        self._folder = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self._folder.name, "app")
        self.folder.mkdir()
        # A symbolic link wouldn't do: the program looks for everything beside the file that it really is.
        copy = shutil.copy2(self._program, self.folder)
        shutil.copytree(self._program.parent / "xml", self.folder / "xml")
        for _ in range(10):
            # Somebody else may take the port between here and the server's own bind.
            self.port = free_port()
            configuration = CONFIGURATION.format(port=self.port, max_input=self._max_input)
            (self.folder / "config.xml").write_text(configuration)
            self._process = subprocess.Popen(
                [copy, "-config", "config.xml", "-quiet"],
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
            )
            if self._serves():
                return self
            self._end()
        log = self.log()
        self._folder.cleanup()
        raise RuntimeError("The server didn't start:\n" + log)

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self._end()
        self._folder.cleanup()

    def _end(self) -> None:
        self._process.kill()  # does nothing if it has ended
        self._process.wait()

    def log(self) -> str:
        log = self.folder / "logs" / "log.txt"
        return log.read_text("utf-8", "replace") if log.exists() else ""

    def _serves(self) -> bool:
        limit = time.monotonic() + 120
        while time.monotonic() < limit and self._process.poll() is None:
            if f"Starting server on port {self.port}." in self.log() and "Waiting for conn" in self.log():
                return True
            time.sleep(0.01)
        return False

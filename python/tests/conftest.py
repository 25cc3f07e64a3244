"""What the tests share: the far end of a line, in another process."""

import os
import select
import subprocess
import sys
import time
from pathlib import Path

import pytest

HERE = Path(__file__).parent
SOURCE = Path(os.environ.get("BRISOLT_SOURCE", HERE.parent.parent))
PATIENCE = 20  # seconds; a machine under load stands still now and then


class FarEnd:
    """A pseudo terminal whose other side is another process."""

    def __init__(self):
        self.process = subprocess.Popen(
            [sys.executable, str(HERE / "far_end.py")], stdin=subprocess.PIPE, stdout=subprocess.PIPE
        )
        self.path = self._answer()

    def _answer(self):
        assert readable(self.process.stdout), "the far end has not answered"
        return self.process.stdout.readline().decode().strip()

    def _say(self, *words):
        self.process.stdin.write(" ".join(map(str, words)).encode() + b"\n")
        self.process.stdin.flush()

    def send(self, data):
        self._say("send", data.hex())

    def take(self, count):
        self._say("take", count)
        return bytes.fromhex(self._answer())

    def answer(self, request, reply):
        self._say("answer", request.hex(), reply.hex())
        self._answer()

    def echo(self):
        self._say("echo")
        self._answer()

    def deaf(self):
        self._say("deaf")
        self._answer()

    def hang(self):
        self._say("hang")
        self._answer()

    def close(self):
        self.process.stdin.close()
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


@pytest.fixture
def far():
    end = FarEnd()
    yield end
    end.close()


def until(condition):
    """Waits until something that another process does has arrived."""
    end = time.monotonic() + PATIENCE
    while not (result := condition()):
        assert time.monotonic() < end, "it has not happened"
        time.sleep(0.002)
    return result


def readable(descriptor, seconds=PATIENCE):
    return bool(select.select([descriptor], [], [], max(seconds, 0))[0])

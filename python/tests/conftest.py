"""What the tests share: the far end of a line, in another process."""

import os
import select
import subprocess
import sys
import threading
import time
from functools import partialmethod
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

    def _do(self, *words):
        told = " ".join(word.hex() if isinstance(word, bytes) else str(word) for word in words)
        self.process.stdin.write(told.encode() + b"\n")
        self.process.stdin.flush()
        return bytes.fromhex(self._answer())

    send = partialmethod(_do, "send")
    take = partialmethod(_do, "take")
    answer = partialmethod(_do, "answer")
    echo = partialmethod(_do, "echo")
    deaf = partialmethod(_do, "deaf")
    hang = partialmethod(_do, "hang")

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


@pytest.fixture
def started():
    """Starts programs, and ends them when the test is over."""
    processes = []

    def start(*command, **options):
        processes.append(subprocess.Popen([*map(str, command)], **options))
        return processes[-1]

    yield start
    for process in processes:
        process.kill()
        process.communicate()


def until(condition):
    """Waits until something that another process does has arrived."""
    end = time.monotonic() + PATIENCE
    while not (result := condition()):
        assert time.monotonic() < end, "it has not happened"
        time.sleep(0.002)
    return result


def aside(work):
    """Works in a thread that keeps no test that fails from its end."""
    thread = threading.Thread(target=work, daemon=True)
    thread.start()
    return thread


def readable(descriptor, seconds=PATIENCE):
    return bool(select.select([descriptor], [], [], max(seconds, 0))[0])

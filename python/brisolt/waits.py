"""A wait in pieces.

A signal ends a wait of the library. But one that comes in the few microseconds between Python's last look and the
beginning of the wait has come too early for the one and too late for the other, and nothing else tells of it. So no
wait is longer than a minute, and the first piece of each is short: signals come when something has just been started.
Pieces that grow cost an idle port next to no wake-ups.
"""

from __future__ import annotations

import time
from collections.abc import Iterator

__all__ = ["pieces"]

_FIRST, _LONGEST = 0.25, 64.0  # seconds; those of reads and writes are in _line.c


def pieces(seconds: float | None) -> Iterator[float]:
    """The lengths of the waits that make one of `seconds` (None: without end); at least one. Python looks for signals
    between them."""
    piece = _FIRST
    end = None if seconds is None else time.monotonic() + seconds
    while True:
        start = time.monotonic()
        left = piece if end is None else end - start
        yield max(min(left, piece), 0)
        now = time.monotonic()
        if end is not None and now >= end:
            return
        if now >= start + piece:  # else a signal has ended it, and others may be behind that
            piece = min(piece * 4, _LONGEST)

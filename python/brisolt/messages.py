"""Messages of the library to the calling thread, waited for so that Ctrl-C ends the wait."""

from __future__ import annotations

import select
import time

from ._library import ffi, lib

__all__ = ["next_message"]


def next_message(seconds: float | None) -> tuple[int, int, int] | None:
    """The number of the calling thread's next message and its two values, None when there was none in time."""
    message = ffi.new("ComHostMessage *")
    watch = select.poll()
    watch.register(lib.ComHostMessageDescriptor(), select.POLLIN)
    end = None if seconds is None else time.monotonic() + seconds
    while True:
        if lib.ComHostGetMessage(message, 0) == 1:
            if message.window == 0:
                return message.message, message.first, message.second
            lib.ComHostDispatchMessage(message)
            continue
        left = None if end is None else end - time.monotonic()
        if left is not None and left <= 0:
            return None
        watch.poll(None if left is None else left * 1000 + 1)

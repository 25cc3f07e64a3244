"""Messages of the library to the calling thread, waited for so that Ctrl-C ends the wait."""

from __future__ import annotations

import select

from ._library import ffi, lib
from .waits import pieces

__all__ = ["next_message"]


def _taken() -> tuple[int, int, int] | None:
    message = ffi.new("ComHostMessage *")
    while lib.ComHostGetMessage(message, 0) == 1:
        if message.window == 0:
            return message.message, message.first, message.second
        lib.ComHostDispatchMessage(message)
    return None


def next_message(seconds: float | None) -> tuple[int, int, int] | None:
    """The number of the calling thread's next message and its two values, None when there was none in time."""
    watch = select.poll()
    watch.register(lib.ComHostMessageDescriptor(), select.POLLIN)
    for piece in pieces(seconds):
        if message := _taken():
            return message
        watch.poll(piece * 1000)
    return _taken()

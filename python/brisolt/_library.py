"""The library itself, loaded by whoever imports this module: `lib` has its functions, `ffi` its types."""

from __future__ import annotations

try:
    from ._native import ffi, lib
except ImportError as error:
    raise ImportError(f"libbrisolt cannot be loaded: {error}") from error

from . import _line

__all__ = ["error_text", "ffi", "lib"]

_line.bind(int(ffi.cast("uintptr_t", lib.brisolt_calls())))


def error_text() -> str:
    """What the host has refused this thread last, in words; "" when nothing has failed."""
    buffer = ffi.new("char[2048]")
    length = lib.ComHostGetErrorText(buffer, len(buffer))
    return str(ffi.string(buffer), "utf-8", "replace") if length > 0 else ""


def encoded(text: str) -> bytes:
    """A text for the library, which ends its strings with a zero byte."""
    given = text.encode("utf-8", "surrogateescape")
    if b"\0" in given:
        raise ValueError(f"{text!r} has a zero byte in it")
    return given

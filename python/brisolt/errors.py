"""What goes wrong, with the library's number and the host's words."""

from __future__ import annotations

import errno

__all__ = ["Cancelled", "DeviceGone", "Error", "PortClosed", "TimeOver", "Unable", "error_of"]


class Error(OSError):
    """A call has failed. `code` is the library's result."""

    number = errno.EIO

    def __init__(self, text: str, code: int = -1) -> None:
        super().__init__(self.number, text)
        self.code = code

    def __str__(self) -> str:
        return str(self.strerror)


class PortClosed(Error):
    """The port is not open, or was closed meanwhile."""

    number = errno.EBADF


class DeviceGone(Error):
    """The device has been pulled out, or its far end has gone."""

    number = errno.ENODEV


class Cancelled(Error):
    """Somebody has cancelled the call."""

    number = errno.ECANCELED


class Unable(Error):
    """The device cannot do this, or will not."""

    number = errno.ENOTSUP


class TimeOver(Error, TimeoutError):
    """The time was over before all was done. `partial` is what had come, `count` how many bytes had gone."""

    number = errno.ETIMEDOUT

    def __init__(self, text: str, code: int = 0, partial: bytes = b"", count: int = 0) -> None:
        super().__init__(text, code)
        self.partial = partial
        self.count = count


_TEXTS: dict[int, tuple[type[Error], str]] = {
    -1: (Error, "it was refused"),
    -2: (DeviceGone, "the device is gone"),
    -3: (Cancelled, "it was cancelled"),
    -4: (Unable, "the device cannot do it"),
}


def error_of(what: str, code: int, detail: str = "") -> Error:
    """The exception for a result below 0."""
    kind, text = _TEXTS.get(code, (Error, f"it failed with {code}"))
    return kind(f"{what}: {detail or text}", code)

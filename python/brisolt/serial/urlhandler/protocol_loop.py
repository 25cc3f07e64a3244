"""loop://[?logging=LEVEL]: a port without hardware that receives what it sends."""

from __future__ import annotations

import threading

from ..serialutil import PortNotOpenError, SerialBase, SerialException, SerialTimeoutException, Timeout, to_bytes
from . import logger, refuse, split

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

FORM = "loop://[?logging={debug|info|warning|error}]"
_BITS_PER_BYTE = 10


class Serial(SerialBase):
    """RTS is CTS, DTR is DSR. A write beyond `buffer_size` waits for a reader."""

    logger: Any = None
    buffer_size = 4096

    def __init__(self, *args: Any, **kwargs: Any) -> None:
        self._news = threading.Condition()
        self._bytes = bytearray()
        self._cancelled = {"read": False, "write": False}
        super().__init__(*args, **kwargs)

    def open(self) -> None:
        if self.is_open:
            raise SerialException("Port is already open.")
        if self._port is None:
            raise SerialException("Port must be configured before it can be used.")
        self.from_url(self._port)
        self._reconfigure_port()
        self._bytes.clear()
        self._cancelled = {"read": False, "write": False}
        self.is_open = True

    def close(self) -> None:
        with self._news:
            self.is_open = False
            self._news.notify_all()

    def from_url(self, url: str) -> None:
        """Applies the options of the URL."""
        _, options = split(url, "loop", FORM)
        for name, value in options.items():
            if name != "logging":
                raise refuse(FORM, f"unknown option: {name!r}")
            self.logger = logger("loop", value, FORM)

    def _reconfigure_port(self) -> None:
        if not 0 < self._baudrate < 2**32:
            raise ValueError(f"invalid baudrate: {self._baudrate!r}")

    def _must_be_open(self) -> None:
        if not self.is_open:
            raise PortNotOpenError

    def _wait(self, what: str, timeout: Timeout) -> bool:
        """Waits for news, with the lock. False: the time is over, or it was cancelled or closed."""
        left = timeout.time_left()
        if self._cancelled[what] or not self.is_open or left == 0:
            return False
        self._news.wait(left)
        return True

    def _taken(self, what: str) -> bool:
        cancelled, self._cancelled[what] = self._cancelled[what], False
        return cancelled

    @property
    def in_waiting(self) -> int:  # type: ignore[override]
        self._must_be_open()
        return len(self._bytes)

    @property
    def out_waiting(self) -> int:
        return self.in_waiting

    def read(self, size: int = 1) -> bytes:
        self._must_be_open()
        timeout = Timeout(self._timeout)
        data = bytearray()
        with self._news:
            while True:
                piece = self._bytes[: max(size - len(data), 0)]
                del self._bytes[: len(piece)]
                data += piece
                self._news.notify_all()  # there is room
                if len(data) >= size or not self._wait("read", timeout):
                    break
            self._taken("read")
        if self.logger and len(data) < size:
            self.logger.info("read timeout")
        return bytes(data)

    def write(self, data: Any) -> int:
        self._must_be_open()
        data = to_bytes(data)
        timeout = Timeout(self._write_timeout)
        with self._news:
            self._taken("write")
            # A write that a line of this rate could not take in time is refused whole, at the end of its time.
            too_slow = (
                self._write_timeout is not None and _BITS_PER_BYTE * len(data) / self._baudrate > self._write_timeout
            )
            sent = 0
            while too_slow or sent < len(data):
                room = 0 if too_slow else self.buffer_size - len(self._bytes)
                self._bytes += data[sent : sent + room]
                sent += min(room, len(data) - sent)
                self._news.notify_all()
                if sent < len(data) and room < 1 and not self._wait("write", timeout):
                    if self._taken("write") or not self.is_open:
                        return sent
                    raise SerialTimeoutException("Write timeout")
        return len(data)

    def _cancel(self, what: str) -> None:
        with self._news:
            self._cancelled[what] = True
            self._news.notify_all()

    def cancel_read(self) -> None:
        self._cancel("read")

    def cancel_write(self) -> None:
        self._cancel("write")

    def flush(self) -> None:
        self._must_be_open()

    def reset_input_buffer(self) -> None:
        self._must_be_open()
        with self._news:
            self._bytes.clear()
            self._news.notify_all()

    def reset_output_buffer(self) -> None:
        self.reset_input_buffer()

    @property
    def cts(self) -> Any:
        self._must_be_open()
        return self._rts_state

    @property
    def dsr(self) -> Any:
        self._must_be_open()
        return self._dtr_state

    @property
    def ri(self) -> bool:
        self._must_be_open()
        return False

    @property
    def cd(self) -> bool:
        self._must_be_open()
        return True

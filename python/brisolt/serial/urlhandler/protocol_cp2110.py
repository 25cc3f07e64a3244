"""cp2110:///dev/hidraw0 or cp2110://BUS:DEVICE:INTERFACE: adapters that show themselves as human interface devices.
They are spoken to over the module `hid` of hidapi (Debian: python3-hid)."""

from __future__ import annotations

import threading
from importlib import import_module

from ..serialutil import PARITY_NONE, STOPBITS_ONE, PortNotOpenError, SerialBase, SerialException, Timeout, to_bytes
from . import refuse

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

hid: Any = import_module("hid")

FORM = "cp2110:///dev/hidraw9 or cp2110://0001:0023:00"

# Feature reports of the adapter; one whose number is that of a length, 1 to 63, carries as many bytes.
_ENABLE, _PURGE, _CONFIGURE, _BREAK_ON, _BREAK_OFF = 0x41, 0x43, 0x50, 0x51, 0x52
_PURGE_OUTPUT, _PURGE_INPUT = 0x01, 0x02
_LONGEST = 63
_PIECE_MS = 100  # the wait of hidapi ends for nobody; who cancels or closes waits as long at most


class Serial(SerialBase):
    """RTS and DTR of these adapters are not for the host, and their inputs are not told."""

    BAUDRATES = (
        300, 375, 600, 1200, 1800, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400, 460800, 500000, 576000,
        921600, 1000000,
    )  # fmt: skip

    def __init__(self, *args: Any, **kwargs: Any) -> None:
        self._device: Any = None
        self._reading = threading.Lock()
        self._received = bytearray()
        self._cancelled = False
        super().__init__(*args, **kwargs)

    def from_url(self, url: str) -> bytes:
        """The path of hidapi that the URL names."""
        scheme, _, path = url.partition("://")
        if scheme.lower() != "cp2110" or not path:
            raise refuse(FORM, f"not {url!r}")
        return path.encode()

    def open(self) -> None:
        if self._port is None:
            raise SerialException("Port must be configured before it can be used.")
        if self.is_open:
            raise SerialException("Port is already open.")
        device = hid.device()
        try:
            device.open_path(self.from_url(self._port))
        except OSError as error:
            raise SerialException(error.errno, f"could not open port {self._port}: {error}") from error
        self._device, self._cancelled = device, False
        self._received.clear()
        try:
            device.set_nonblocking(True)
            self._reconfigure_port()
            self._report(_ENABLE, 1)
            self._update_break_state()
        except BaseException:
            device.close()
            raise
        self.is_open = True

    def close(self) -> None:
        if not self.is_open:
            return
        self.is_open = False
        with self._reading:
            self._device.close()

    # ---- Reports ----

    def _opened(self) -> Any:
        if not self.is_open:
            raise PortNotOpenError
        return self._device

    def _report(self, *report: int) -> None:
        if self._device.send_feature_report(bytes(report)) < 0:
            raise SerialException(f"{self.portstr}: the adapter refuses report 0x{report[0]:02x}")

    def _reconfigure_port(self) -> None:
        stop = 0 if self._stopbits == STOPBITS_ONE else 1  # which is 1.5 of 5 bits, 2 of more
        parity = (PARITY_NONE, "O", "E", "M", "S").index(self._parity)
        rate = self._baudrate.to_bytes(4, "big")
        self._report(_CONFIGURE, *rate, parity, 1 if self._rtscts else 0, self._bytesize - 5, stop)

    def _update_break_state(self) -> None:
        self._report(_BREAK_ON if self._break_state else _BREAK_OFF, 0)

    # ---- Bytes ----

    def _fetch(self, milliseconds: int) -> None:
        """Takes in what has come, after a wait for the first of it. With the lock."""
        try:
            while report := self._opened().read(_LONGEST + 1, milliseconds):
                self._received += bytes(report[1 : report[0] + 1])
                milliseconds = 0
        except (ValueError, OSError) as error:
            if not isinstance(error, SerialException):
                raise SerialException(f"read failed: {self.portstr}: {error}") from error
            raise

    @property
    def in_waiting(self) -> int:  # type: ignore[override]
        with self._reading:
            self._fetch(0)
            return len(self._received)

    def read(self, size: int = 1) -> bytes:
        self._opened()
        timeout = Timeout(self._timeout)
        while True:
            left = timeout.time_left()
            with self._reading:
                self._fetch(0)
                if len(self._received) < size and left != 0 and not self._cancelled:
                    self._fetch(_PIECE_MS if left is None else min(_PIECE_MS, int(left * 1000) + 1))
                if len(self._received) >= size or left == 0 or self._cancelled:
                    self._cancelled = False
                    data = bytes(self._received[:size])
                    del self._received[:size]
                    return data

    def write(self, data: Any) -> int:
        data = to_bytes(data)
        for at in range(0, len(data), _LONGEST):
            piece = data[at : at + _LONGEST]
            if self._opened().write(bytes([len(piece)]) + piece) < 0:
                raise SerialException(f"write failed: {self.portstr}: {self._device.error()}")
        self._opened()
        return len(data)

    def cancel_read(self) -> None:
        self._cancelled = True

    def cancel_write(self) -> None:
        """Does nothing: a write waits for nobody."""

    @property
    def out_waiting(self) -> int:
        """0: the adapter has it all."""
        self._opened()
        return 0

    def flush(self) -> None:
        self._opened()

    def reset_input_buffer(self) -> None:
        self._opened()
        self._report(_PURGE, _PURGE_INPUT)
        with self._reading:
            self._fetch(0)
            self._received.clear()

    def reset_output_buffer(self) -> None:
        self._opened()
        self._report(_PURGE, _PURGE_OUTPUT)

"""spy://PORT[?file=NAME][&color][&raw][&all]: a port that tells what goes over it, on standard error or in a file."""

from __future__ import annotations

import sys
import time

from .. import serialposix
from ..serialutil import to_bytes
from . import refuse, split

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Iterator
    from typing import Any

FORM = "spy://port[?option[=value][&option[=value]]]"
_RED, _GREEN, _WHITE = "\x1b[31m", "\x1b[32m", "\x1b[37m"
_port: Any = serialposix.Serial.port


def hexdump(data: bytes) -> Iterator[tuple[int, str]]:
    """Offset and text of each 16 bytes."""
    for at in range(0, len(data), 16):
        row = data[at : at + 16]
        halves = ["".join(f"{byte:02X} " for byte in half).ljust(24) for half in (row[:8], row[8:])]
        shown = "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row)
        yield at, f"{halves[0]} {halves[1]} {shown:16}"


class FormatRaw:
    """What was received and sent, as it is."""

    def __init__(self, output: Any, color: bool) -> None:
        self.text = output  # which would take its bytes along when it goes
        self.output = getattr(output, "buffer", output)
        self.color = color

    def _write(self, color: str, data: bytes) -> None:
        if self.color:
            self.output.write(color.encode())
        self.output.write(data)
        self.output.flush()

    def rx(self, data: bytes) -> None:
        self._write(_GREEN, data)

    def tx(self, data: bytes) -> None:
        self._write(_RED, data)

    def control(self, name: str, value: str) -> None:
        """Lines are not shown."""


class FormatHexdump:
    """Rows of 16 bytes with the time since the start, and what is done with the lines."""

    def __init__(self, output: Any, color: bool) -> None:
        self.start_time = time.time()
        self.output = output
        self.color = color

    def write_line(self, timestamp: float, label: str, value: str, value2: str = "") -> None:
        self.output.write(f"{timestamp:010.3f} {label:4} {value}{value2}\n")
        self.output.flush()

    def _lines(self, color: str, label: str, lines: list[tuple[str, str]]) -> None:
        if self.color:
            self.output.write(color)
        for value, value2 in lines:
            self.write_line(time.time() - self.start_time, label, value, value2)

    def _dump(self, color: str, label: str, data: bytes) -> None:
        self._lines(color, label, [(f"{at:04X}  ", row) for at, row in hexdump(data)])

    def rx(self, data: bytes) -> None:
        if data:
            self._dump(_GREEN, "RX", data)
        else:
            self._lines(_GREEN, "RX", [("<empty>", "")])

    def tx(self, data: bytes) -> None:
        self._dump(_RED, "TX", data)

    def control(self, name: str, value: str) -> None:
        self._lines(_WHITE, name, [(value, "")])


def _told(name: str, label: str) -> Any:
    """The property `name` of a port, with each look and each change told."""
    own: Any = getattr(serialposix.Serial, name)

    def word(level: Any) -> str:
        return "active" if level else "inactive"

    def get(port: Any) -> Any:
        level = own.__get__(port)
        port.formatter.control(label, word(level))
        return level

    def put(port: Any, level: Any) -> None:
        port.formatter.control(label, word(level))
        own.__set__(port, level)

    return property(own.fget if own.fset else get, put if own.fset else None)


class Serial(serialposix.Serial):
    show_all = False

    def __init__(self, *args: Any, **kwargs: Any) -> None:
        self.formatter: Any = FormatHexdump(sys.stderr, False)
        super().__init__(*args, **kwargs)

    def _set_port(self, value: Any) -> None:
        _port.__set__(self, self.from_url(value) if isinstance(value, str) and "://" in value else value)

    port = property(_port.fget, _set_port)  # type: ignore[assignment]

    def from_url(self, url: str) -> str:
        """The port behind the URL; options are applied."""
        parts, options = split(url, "spy", FORM)
        if unknown := set(options) - {"file", "color", "raw", "all"}:
            raise refuse(FORM, f"unknown option: {min(unknown)!r}")
        kind: Any = FormatRaw if "raw" in options else FormatHexdump
        output = open(options["file"], "w") if "file" in options else sys.stderr
        self.show_all = "all" in options
        self.formatter = kind(output, "color" in options)
        return str(parts.netloc + parts.path)

    def write(self, tx: Any) -> int:
        tx = to_bytes(tx)
        self.formatter.tx(tx)
        return super().write(tx)

    def read(self, size: int = 1) -> bytes:
        rx = super().read(size)
        if rx or self.show_all:
            self.formatter.rx(rx)
        return rx

    def cancel_read(self) -> None:
        self.formatter.control("Q-RX", "cancel_read")
        super().cancel_read()

    def cancel_write(self) -> None:
        self.formatter.control("Q-TX", "cancel_write")
        super().cancel_write()

    @property
    def in_waiting(self) -> int:  # type: ignore[override]
        count: int = super().in_waiting
        if self.show_all:
            self.formatter.control("Q-RX", f"in_waiting -> {count}")
        return count

    def flush(self) -> None:
        self.formatter.control("Q-TX", "flush")
        super().flush()

    def reset_input_buffer(self) -> None:
        self.formatter.control("Q-RX", "reset_input_buffer")
        super().reset_input_buffer()

    def reset_output_buffer(self) -> None:
        self.formatter.control("Q-TX", "reset_output_buffer")
        super().reset_output_buffer()

    def send_break(self, duration: float = 0.25) -> None:
        self.formatter.control("BRK", f"send_break {duration}s")
        super().send_break(duration)

    break_condition = _told("break_condition", "BRK")
    rts = _told("rts", "RTS")
    dtr = _told("dtr", "DTR")
    cts = _told("cts", "CTS")
    dsr = _told("dsr", "DSR")
    ri = _told("ri", "RI")
    cd = _told("cd", "CD")

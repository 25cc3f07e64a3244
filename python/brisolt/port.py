"""brisolt.Port: a serial port as Python has it."""

from __future__ import annotations

import os
import pathlib
import threading
import time
from collections.abc import Callable, Iterable
from enum import IntFlag
from types import TracebackType
from typing import Any, NamedTuple

from ._library import encoded, error_text, ffi, lib
from ._line import Line
from .errors import Error, PortClosed, TimeOver, error_of
from .messages import next_message
from .options import with_options
from .waits import pieces

__all__ = ["Counters", "Event", "Lines", "Port"]

_FLOWS = {"rts": 0, "xon": 1, "none": 2, "dtr": 3, "rts+dtr": 4, "xon+dtr": 5}
_STATES = {0: "closed", 1: "there", 2: "gone", 3: "sought"}
_CANCELLED, _INTERRUPTED = -3, -5
_LONG = 10_000_000  # seconds
_SAME: Any = object()  # a time-out that was not given: the port's own


class Event(IntFlag):
    """What wait_event() waits for."""

    CTS = 0x0008
    DSR = 0x0010
    CARRIER = 0x0020
    BREAK = 0x0040
    ERROR = 0x0080  #: framing, parity, overrun, overflow
    RING = 0x0100
    GONE = 0x1000
    BACK = 0x2000


_ALL_EVENTS = sum(Event)


class Lines(NamedTuple):
    """The lines as they are: outputs as the port has set them, inputs as the device tells."""

    dtr: bool
    rts: bool
    cts: bool
    dsr: bool
    ring: bool
    carrier: bool


class Counters(NamedTuple):
    """How often things have happened since the open."""

    cts: int
    dsr: int
    carrier: int
    ring: int
    breaks: int
    framing: int
    parity: int
    overrun: int
    overflow: int
    gone: int
    back: int
    received: int
    sent: int


def _milliseconds(seconds: float | None) -> int:
    if seconds is None:
        return -1
    if not seconds >= 0:
        raise ValueError(f"a time-out is seconds, 0 or above, or None, not {seconds!r}")
    return min(int(seconds * 1000 + 0.999), 2**31 - 1)


def _pattern(text: bytes | str) -> bytes:
    return encoded(text) if isinstance(text, str) else bytes(text)


class _Wait:
    """A wait that runs in pieces, of which cancel() ends them all."""

    def __init__(self) -> None:
        self.cancelled = False
        self.thread = threading.get_ident()


class Port(Line):
    """An open serial port.

    path       a device ("/dev/ttyUSB0", "COM3"), or another path of the library ("usb:0403:6001", "null-modem:x",
               "tcp:host:7000"), with or without options behind a "?"
    baudrate   bits per second
    framing    data bits, parity (N O E M S) and stop bits: "8N1", "7E1"
    flow       flow control: "none", "rts", "xon", "dtr", "rts+dtr", "xon+dtr"
    timeout    seconds that a read waits for its bytes; None: without end
    write_timeout   seconds that a write waits for room
    options    those of a path, as keywords: dtr="off", keep=True, low_latency="on", rs485="driver"

    A failure is a brisolt.Error with the library's `code` and the host's words. Ctrl-C ends every wait. A port that
    is dropped is closed.
    """

    def __init__(
        self,
        path: str,
        baudrate: int = 115200,
        framing: str = "8N1",
        *,
        flow: str = "none",
        timeout: float | None = None,
        write_timeout: float | None = None,
        **options: object,
    ) -> None:
        self._set_times(timeout, write_timeout)
        self._times = (timeout, write_timeout)
        self._waits: set[_Wait] = set()
        self.path = path
        code = _flow_code(flow)
        whole = with_options(path, options)
        number = lib.ComHostOpen(encoded(whole), _rate(baudrate), encoded(framing))
        if number < 0:
            raise error_of("open", number, error_text() or f"{path}: result {number}")
        self._attach(number, -1, 0)
        self._number = int(number)
        if code != _FLOWS["none"]:
            try:
                self.set_line(flow=flow)
            except BaseException:
                self.close()
                raise

    def __repr__(self) -> str:
        return f"<brisolt.Port {self.path} ({self.state})>"

    # ---- Failures, and calls of the library ----

    def _failure(self, what: str, code: int) -> None:
        if not self._is_open:
            raise PortClosed(f"{what}: {self.path} is closed", -1)
        if code == 0:
            raise TimeOver(f"{what}: {self.path} does not take all of it in time", code)
        raise error_of(f"{what} on {self.path}", code)

    @staticmethod
    def _to_bytes(data: object) -> bytes:
        raise TypeError(f"bytes or a buffer of bytes is needed, not {type(data).__name__}")

    def _checked(self, what: str, call: Callable[..., int], *arguments: Any) -> int:
        """A call whose results below 0 are failures; a signal only lets Python look at it."""
        while True:
            result = self._on_port(call, *arguments)
            if result >= 0:
                return result
            if result != _INTERRUPTED:
                self._failure(what, result)

    def _wait(self, what: str, timeout: float | None, call: Callable[..., int], *arguments: Any) -> int:
        """A call whose last argument is its time limit. 0 when the time was over."""
        wait = _Wait()
        self._waits.add(wait)
        try:
            for piece in pieces(timeout):
                if wait.cancelled:
                    self._failure(what, _CANCELLED)
                result = self._on_port(call, *arguments, _milliseconds(piece))
                if result > 0:
                    return result
                if result not in (0, _INTERRUPTED, _CANCELLED):
                    self._failure(what, result)
        finally:
            self._waits.remove(wait)
        return 0

    # ---- Closing ----

    def close(self, timeout: float | None = 5) -> None:
        """Closes the port when what was written has left, after `timeout` seconds at the latest. Waits of other
        threads end. A closed port may be closed again."""
        if self.closed:
            return
        try:
            for piece in pieces(timeout):
                if self._on_port(lib.ComHostDrain, _milliseconds(piece)) not in (0, _INTERRUPTED):
                    break
        except PortClosed:
            pass  # somebody else has closed it meanwhile
        finally:
            self._detach(0)

    @property
    def closed(self) -> bool:
        return not self._is_open

    def __enter__(self) -> Port:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    @property
    def state(self) -> str:
        """ "closed", "there", "gone", or "sought": gone, and waited for (keep=True)."""
        return _STATES[0 if self.closed else lib.ComHostGetPortState(self._number)]

    @property
    def number(self) -> int:
        """The port's number, for the functions of brisolt._library.lib; 0 when it is closed."""
        return self._number if self._is_open else 0

    # ---- Reading ----

    @property
    def timeout(self) -> float | None:
        """Seconds that a read waits for its bytes; None: without end."""
        return self._times[0]

    @timeout.setter
    def timeout(self, seconds: float | None) -> None:
        self._set_times(seconds, self._times[1])
        self._times = (seconds, self._times[1])

    def read(self, size: int = 65536, timeout: float | None = _SAME) -> bytes:
        """What is there, at most `size` bytes; when nothing is, waits for the first. b"" none in time."""
        return self._read_some(size, self._times[0] if timeout is _SAME else timeout)

    def read_exactly(self, size: int, timeout: float | None = _SAME) -> bytes:
        """`size` bytes. TimeOver when they have not come in time; its `partial` is what has."""
        data = self._read_within(size, self._times[0] if timeout is _SAME else timeout)
        if len(data) < size:
            raise TimeOver(f"read: {len(data)} of {size} bytes have come from {self.path} in time", partial=data)
        return data

    def readinto(self, buffer: Any) -> int:
        """What is there into the buffer, after a wait for the first byte; the count."""
        view = memoryview(buffer).cast("B")
        data = self.read(len(view))
        view[: len(data)] = data
        return len(data)

    def readline(self, size: int | None = -1, timeout: float | None = _SAME) -> bytes:
        """Up to a line feed; less when nothing has come for the time-out. A loop over the port gives its lines."""
        return self.read_until(b"\n", None if size is None or size < 0 else size, timeout)

    def read_until(self, expected: bytes = b"\n", size: int | None = None, timeout: float | None = _SAME) -> bytes:
        """Up to and including `expected`, at most `size` bytes; less when nothing has come for the time-out."""
        return self._read_until_within(expected, size, self._times[0] if timeout is _SAME else timeout)

    @property
    def in_waiting(self) -> int:  # type: ignore[override]
        """Bytes that are there to be read."""
        return self._checked("in_waiting", lib.ComStatus)

    def peek(self, size: int = 65536) -> bytes:
        """The next bytes, as far as they are there; a read still gives them."""
        buffer = ffi.new("char[]", max(size, 1))
        count = self._checked("peek", lib.ComPeekBuf, buffer, size)
        return bytes(ffi.buffer(buffer, count))

    def discard_input(self) -> None:
        """Drops what has been received and not read."""
        self._checked("discarding", lib.Com_Flush, 0)

    def cancel(self) -> None:
        """Ends the waits that run on the port, in whatever thread, and no later ones. A read gives what it has, be it
        nothing, a write tells what it has handed over, the others raise Cancelled. A signal's handler may cancel the
        wait that it has interrupted."""
        running = list(self._waits)
        for wait in running:
            wait.cancelled = True
        self._cancel_waits()
        self._on_port(lib.ComCancel)
        # One may just be between two pieces; one of this thread is below a signal's handler and ends after it.
        others = [wait for wait in running if wait.thread != threading.get_ident()]
        while not self._waits.isdisjoint(others):
            time.sleep(0.0005)
            self._on_port(lib.ComCancel)

    # ---- Writing ----

    @property
    def write_timeout(self) -> float | None:
        """Seconds that a write waits for room; None: without end."""
        return self._times[1]

    @write_timeout.setter
    def write_timeout(self, seconds: float | None) -> None:
        self._set_times(self._times[0], seconds)
        self._times = (self._times[0], seconds)

    def write(self, data: Any, timeout: float | None = _SAME) -> int:
        """Hands over all of `data`. TimeOver when not all was taken in time. With a time-out of 0: what fits."""
        return self._write_within(data, self._times[1] if timeout is _SAME else timeout)

    def drain(self, timeout: float | None = None) -> None:
        """Waits until all that was written has left on the line; TimeOver when it has not in time."""
        if self._wait("drain", timeout, lib.ComHostDrain) == 0:
            raise TimeOver(f"drain: {self.path} has not sent all in time")

    flush = drain

    @property
    def out_waiting(self) -> int:
        """Bytes written that have not left yet."""
        return self._checked("out_waiting", lib.ComOutBufStatus)

    def discard_output(self) -> None:
        """Drops what was written and has not left yet."""
        self._checked("discarding", lib.ComFlushOutBuf)

    # ---- The line ----

    def _line_state(self) -> Any:
        state = ffi.new("ComHostLineState *")
        state.size = ffi.sizeof("ComHostLineState")
        self._checked("reading the settings", lib.ComHostGetLine, state)
        return state

    @property
    def baudrate(self) -> int:
        """Bits per second, as the device runs."""
        return int(self._line_state().baudRate)

    @baudrate.setter
    def baudrate(self, rate: int) -> None:
        self.set_line(baudrate=rate)

    @property
    def framing(self) -> str:
        """Data bits, parity and stop bits as the device runs: "8N1"."""
        state = self._line_state()
        return f"{state.dataBits}{'NOEMS'[state.parity]}{('1', '1.5', '2')[state.stopBits]}"

    @framing.setter
    def framing(self, framing: str) -> None:
        self.set_line(framing=framing)

    def set_line(self, baudrate: int = 0, framing: str | None = None, flow: str | None = None) -> None:
        """Rate, framing and flow control in one step, without losing a byte; what is not given stays. When the
        device refuses, everything is as before."""
        code = -1 if flow is None else _flow_code(flow)
        text = ffi.NULL if framing is None else encoded(framing)
        result = self._on_port(lib.ComHostSetLine, _rate(baudrate), text, code)
        if result in (-33, -34, -35):
            part = {-33: "parity", -34: "data bits", -35: "stop bits"}[result]
            raise error_of("set_line", result, f"framing {framing!r}: no such {part} (as in 8N1, 7E1, 5N1.5)")
        if result != 1:
            raise error_of(f"set_line on {self.path}", result, error_text() if result == -4 else "")

    def lines(self) -> Lines:
        """The lines as they are now."""
        bits = self._checked("lines", lib.ComHostGetLines)
        return Lines(*(bool(bits & bit) for bit in (0x01, 0x02, 0x10, 0x20, 0x40, 0x80)))

    def set_dtr(self, on: bool) -> None:
        self._set_output("DTR", on)

    def set_rts(self, on: bool) -> None:
        self._set_output("RTS", on)

    def _set_output(self, name: str, on: bool) -> None:
        code = self._on_port(getattr(lib, ("ComSet" if on else "ComClear") + name))
        if code == -2:
            raise error_of(f"{name} on {self.path}", -4)
        if code < 0:
            self._failure(name, -1)

    def send_break(self, seconds: float = 0.25) -> None:
        """A break of that length."""
        self._checked("break", lib.ComSetBreak_ON)
        try:
            time.sleep(seconds)
        finally:
            if not self.closed:
                self._checked("break", lib.ComSetBreak_OFF)

    # ---- What happens ----

    def _counters(self) -> Any:
        counters = ffi.new("ComHostCounters *")
        counters.size = ffi.sizeof("ComHostCounters")
        self._checked("counters", lib.ComHostGetCounters, counters)
        return counters

    def counters(self) -> Counters:
        """How often things have happened since the open."""
        counters = self._counters()
        return Counters(*(getattr(counters, name) for name in Counters._fields))

    def wait_event(self, events: Event | int, timeout: float | None = None, since: Counters | None = None) -> Event:
        """Waits until one of `events` happens and tells which. With `since` those count that have happened after
        these counters were taken, so that nothing between two waits is missed. No event in time: Event(0)."""
        if not events or int(events) & ~_ALL_EVENTS:
            raise ValueError(f"wait_event: {events!r} names no events")
        seen = self._counters()
        if since is not None:
            for name in Counters._fields:
                setattr(seen, name, getattr(since, name))
        return Event(self._wait("wait_event", timeout, lib.ComHostWaitEvent, int(events), seen))

    # ---- The device itself ----

    def fileno(self) -> int:
        """The device's own descriptor, for an event loop: it polls readable when bytes are there. From now on no
        byte leaves the device but those that a read asks for."""
        return self._checked("fileno", lib.ComHostDescriptor)

    # ---- Dialogues ----

    def expect(
        self,
        *patterns: bytes | str,
        answers: Iterable[bytes | str] | None = None,
        timeout: float = 10,
        limit: int = 9999,
    ) -> int:
        """Reads until one of `patterns` has come and tells which (from 0); the answer of the same place is sent ("|"
        in it is a carriage return, "~" a pause of a second). TimeOver when the time is over or `limit` bytes have
        come; `partial` is what has. What follows the pattern stays to be read."""
        keep = [ffi.new("char[]", _pattern(text)) for text in patterns]
        said = [ffi.new("char[]", _pattern(text)) for text in (answers or [b""] * len(keep))]
        if not keep or len(said) != len(keep):
            raise ValueError(f"expect: {len(keep)} patterns and {len(said)} answers")
        stimuli, responses = ffi.new("char *[]", keep), ffi.new("char *[]", said)
        result = self._dialogue(timeout, lib.ComStimulusArray, stimuli, responses, len(keep), limit, _LONG)
        if result is not None and result > 0:
            return result - 1
        if result == -4:
            self._failure("expect", _CANCELLED)
        if result not in (None, -2, -3):
            self._failure("expect", -1)
        raise TimeOver(f"expect: none of it has come from {self.path}", partial=self._matched())

    def _dialogue(self, timeout: float | None, call: Callable[..., int], *arguments: Any) -> int | None:
        """A call of the library whose wait neither a signal nor a fraction of a second ends: it runs beside, so that
        both do. None: the time was over."""
        results: list[int] = []

        def run() -> None:
            try:
                results.append(self._on_port(call, *arguments))
            except Error:
                results.append(-1)

        beside = threading.Thread(target=run, daemon=True)
        beside.start()
        try:
            for piece in pieces(timeout):
                beside.join(piece)
                if not beside.is_alive():
                    break
            return results[0] if results else None
        finally:
            while beside.is_alive() and self._is_open:
                lib.ComCancel(self._number)
                beside.join(0.01)

    def _matched(self) -> bytes:
        length = self._on_port(lib.ComGetBufLen)
        buffer = ffi.new("char[]", max(length, 1))
        self._on_port(lib.ComGetteststring, buffer, length)
        return bytes(ffi.buffer(buffer, max(length, 0)))

    def dial(self, number: str, timeout: float | None = 60) -> None:
        """Dials and waits for carrier; TimeOver without one in time, None: does not wait."""
        seconds = 0 if timeout is None else max(int(timeout), 1)
        self._checked("dial", lib.CSetModemParmDialTime, seconds)
        result = self._dialogue(None, lib.ComDial, encoded(number))
        if result == 1:
            return
        if result == 0:
            self._failure("dial", _CANCELLED)
        if not self._is_open:
            self._failure("dial", -1)
        raise TimeOver(f"dial: no carrier on {self.path}")

    def hang_up(self) -> None:
        """Sends the command that ends a call."""
        if self._dialogue(None, lib.ComDisc) != 1:
            self._failure("hang_up", -1)

    def set_modem(
        self,
        modem: str,
        database: str | os.PathLike[str] = "",
        *,
        reset: bool = True,
        initialise: bool = True,
        compression: bool = True,
        flow: str = "rts",
        error_control: str = "on",
        auto_answer: bool = False,
        log: str = "",
    ) -> None:
        """Sends a modem its reset, initialisation and settings as the database has them (modems.txt of the library
        when none is named)."""
        flows = {"none": 0, "rts": 1, "xon": 2}
        controls = {"off": 0, "on": 1, "forced": 2}
        if flow not in flows or error_control not in controls:
            raise ValueError(
                f"flow {flow!r} is not of {list(flows)}, or error_control {error_control!r} of {list(controls)}"
            )
        file = os.fspath(database) or _modem_database()
        result = self._dialogue(
            None, lib.ComSetModem, encoded(file), encoded(modem), int(reset), int(initialise), int(compression),
            flows[flow], controls[error_control], int(auto_answer), encoded(log),
        )  # fmt: skip
        if result == 1:
            return
        if result in (-5, -6):
            step = "reset" if result == -5 else "initialisation"
            raise Error(f"set_modem: {modem} on {self.path} has not answered the {step}", result)
        if result == -2:
            raise Error(f"set_modem: {file} cannot be read or has no modem {modem!r}", result)
        self._failure("set_modem", -1)

    # ---- Text files ----

    def send_text(
        self, file: str | os.PathLike[str], progress: Callable[[int, int], object] | None = None, chunk: int = 1024
    ) -> int:
        """Sends a text file with the line ends of the port, and tells `progress` the bytes sent and those of the
        file after each chunk. The bytes of the file."""
        name = encoded(os.fspath(file))
        self._start("send_text", lib.ComSA_Start, name, chunk, file=file)
        try:
            lib.CSetTotal(self._number, name)
            while self._checked("send_text", lib.ComSA_Next) == 5:
                if progress is not None:
                    progress(lib.ComGetBytes(self._number), lib.ComGetTotal(self._number))
        except BaseException:
            self._abort()
            raise
        count = int(self._on_port(lib.ComGetBytes))
        if progress is not None:
            progress(count, lib.ComGetTotal(self._number))
        return count

    def receive_text(
        self,
        file: str | os.PathLike[str],
        end: int | None = 26,
        timeout: float = 20,
        progress: Callable[[int], object] | None = None,
    ) -> int:
        """Receives into a file until the byte `end` comes, or nothing has come for `timeout` seconds (TimeOver), and
        tells `progress` the bytes so far. The bytes received."""
        self._start(
            "receive_text", lib.ComRA_Start, encoded(os.fspath(file)), 27, -1 if end is None else end, 20, file=file
        )
        try:
            self._on_port(lib.ComSetNotifyThreadMessageAnyChar, lib.ComHostThreadId())
            count, last = 0, time.monotonic()
            while self._checked("receive_text", lib.ComRA_Next) == 5:
                now = lib.ComGetBytes(self._number)
                if now != count:
                    count, last = now, time.monotonic()
                    if progress is not None:
                        progress(count)
                    continue
                left = last + timeout - time.monotonic()
                if left <= 0:
                    raise TimeOver(f"receive_text: nothing has come from {self.path} for {timeout:g} s", count=count)
                next_message(min(left, 1))
        except BaseException:
            self._abort()
            raise
        count = int(self._on_port(lib.ComGetBytes))
        if progress is not None:
            progress(count)
        return count

    def _start(self, what: str, call: Callable[..., int], name: bytes, *arguments: Any, file: object) -> None:
        if self._on_port(call, name, *arguments) != 1:
            raise Error(f"{what}: {os.fspath(file)!r} cannot be opened, or a transfer runs already")  # type: ignore[call-overload]

    def _abort(self) -> None:
        if not self.closed:
            self._on_port(lib.ComSA_Abort)


def _rate(rate: int) -> int:
    if not 0 <= rate < 2**31:
        raise ValueError(f"a rate is bits per second, 0 to {2**31 - 1}, not {rate!r}")
    return rate


def _flow_code(flow: str) -> int:
    if flow not in _FLOWS:
        raise ValueError(f"flow {flow!r} is none of {', '.join(_FLOWS)}")
    return _FLOWS[flow]


def _modem_database() -> str:
    beside = [f"{folder}/share" for folder in pathlib.Path(__file__).resolve().parents]  # of the same installation
    for folder in (*beside, "/usr/local/share", "/usr/share"):
        if os.path.exists(path := f"{folder}/brisolt5/modems.txt"):
            return path
    raise ValueError("set_modem: no modem database is installed; name one")

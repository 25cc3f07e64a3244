"""What all kinds of serial port share: constants, exceptions, and the settings with their checks."""

from __future__ import annotations

import time

from .._line import Line

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Callable, Iterator
    from types import TracebackType
    from typing import Any

__all__ = [
    "CR", "EIGHTBITS", "FIVEBITS", "LF", "PARITY_EVEN", "PARITY_MARK", "PARITY_NAMES", "PARITY_NONE", "PARITY_ODD",
    "PARITY_SPACE", "PortNotOpenError", "SEVENBITS", "SIXBITS", "STOPBITS_ONE", "STOPBITS_ONE_POINT_FIVE",
    "STOPBITS_TWO", "SerialBase", "SerialException", "SerialTimeoutException", "Timeout", "XOFF", "XON", "iterbytes",
    "to_bytes",
]  # fmt: skip

XON, XOFF, CR, LF = b"\x11", b"\x13", b"\r", b"\n"

PARITY_NONE, PARITY_EVEN, PARITY_ODD, PARITY_MARK, PARITY_SPACE = "N", "E", "O", "M", "S"
STOPBITS_ONE, STOPBITS_ONE_POINT_FIVE, STOPBITS_TWO = 1, 1.5, 2
FIVEBITS, SIXBITS, SEVENBITS, EIGHTBITS = 5, 6, 7, 8
basestring, unicode = (str,), str  # for programs that still ask

PARITY_NAMES = {"N": "None", "E": "Even", "O": "Odd", "M": "Mark", "S": "Space"}


class SerialException(OSError):
    """Something about a serial port has failed."""


class SerialTimeoutException(SerialException):
    """A write was not done in time."""


class PortNotOpenError(SerialException):
    """The port is not open."""

    def __init__(self) -> None:
        super().__init__("Attempting to use a port that is not open")


def iterbytes(b: Any) -> Iterator[bytes]:
    """The bytes of `b`, each as bytes of length 1."""
    if isinstance(b, memoryview):
        b = b.tobytes()
    for at in range(len(b)):
        yield b[at : at + 1]


def to_bytes(seq: Any) -> bytes:
    """bytes of what a write may be given: bytes, a buffer, or numbers from 0 to 255."""
    if isinstance(seq, str):
        raise TypeError(f"unicode strings are not supported, please encode to bytes: {seq!r}")
    if isinstance(seq, memoryview):
        return seq.tobytes()
    return bytes(bytearray(seq))


class Timeout:
    """A time that runs: None is without end, 0 is over from the start."""

    TIME = staticmethod(time.monotonic)

    def __init__(self, duration: float | None) -> None:
        self.is_infinite = duration is None
        self.is_non_blocking = duration == 0
        self.duration = duration
        self.target_time = None if duration is None else self.TIME() + duration

    def expired(self) -> bool:
        return self.target_time is not None and not self.time_left()

    def time_left(self) -> float | None:
        """Seconds, never below 0; None without end."""
        if self.target_time is None:
            return None
        return 0 if self.is_non_blocking else max(0, self.target_time - self.TIME())

    def restart(self, duration: float) -> None:
        self.duration = duration
        self.target_time = self.TIME() + duration


def _rate(port: SerialBase, value: Any) -> int:
    try:
        rate = int(value)
    except (TypeError, ValueError):
        rate = -1
    if not 0 <= rate < 2**31:
        raise ValueError(f"Not a valid baudrate: {value!r} (0 to {2**31 - 1})")
    return rate


def _one_of(what: str, possible: str) -> Callable[[SerialBase, Any], Any]:
    def check(port: SerialBase, value: Any) -> Any:
        if value not in getattr(port, possible):
            raise ValueError(f"Not a valid {what}: {value!r} (one of {', '.join(map(str, getattr(port, possible)))})")
        return value

    return check


def _seconds(port: SerialBase, value: Any) -> Any:
    try:
        valid = value is None or value + 0 >= 0
    except TypeError:
        valid = False
    if not valid:
        raise ValueError(f"Not a valid timeout: {value!r} (seconds, or None)")
    return value


def _as_it_is(port: SerialBase, value: Any) -> Any:
    return value


def _setting(name: str, check: Callable[[SerialBase, Any], Any], doc: str) -> Any:
    """A property kept as _NAME; a change of an open port is applied at once, and taken back when it is refused."""
    field = "_" + name

    def get(port: SerialBase) -> Any:
        return getattr(port, field)

    def put(port: SerialBase, value: Any) -> None:
        value, before = check(port, value), getattr(port, field)
        setattr(port, field, value)
        if port.is_open:
            try:
                port._reconfigure_port()
            except BaseException:
                setattr(port, field, before)
                raise

    return property(get, put, doc=doc)


def _output(name: str) -> Any:
    """An output line: kept as _NAME_state, told to the device while it is open."""
    field, update = f"_{name}_state", f"_update_{name}_state"

    def get(port: SerialBase) -> Any:
        return getattr(port, field)

    def put(port: SerialBase, value: Any) -> None:
        setattr(port, field, value)
        if port.is_open:
            getattr(port, update)()

    return property(get, put)


def _another(name: str) -> Any:
    """The name that a setting had in older programs."""
    return property(lambda port: getattr(port, name), lambda port, value: setattr(port, name, value))


class SerialBase(Line):
    """Settings and everything that does not depend on what the port stands on."""

    BAUDRATES: tuple[int, ...] = (
        50, 75, 110, 134, 150, 200, 300, 600, 1200, 1800, 2400, 4800, 9600, 19200, 38400, 57600, 115200, 230400,
        460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000,
    )  # fmt: skip
    BYTESIZES = (FIVEBITS, SIXBITS, SEVENBITS, EIGHTBITS)
    PARITIES = (PARITY_NONE, PARITY_EVEN, PARITY_ODD, PARITY_MARK, PARITY_SPACE)
    STOPBITS = (STOPBITS_ONE, STOPBITS_ONE_POINT_FIVE, STOPBITS_TWO)

    _SAVED_SETTINGS = (
        "baudrate", "bytesize", "parity", "stopbits", "xonxoff", "dsrdtr", "rtscts", "timeout", "write_timeout",
        "inter_byte_timeout",
    )  # fmt: skip

    if TYPE_CHECKING:  # made by __init__, by name
        _baudrate: Any
        _bytesize: Any
        _parity: Any
        _stopbits: Any
        _xonxoff: Any
        _rtscts: Any
        _dsrdtr: Any
        _inter_byte_timeout: Any
        _exclusive: Any
        _rs485_mode: Any

    # A subclass may look at these before __init__ has run.
    is_open: bool = False
    _times: tuple[Any, Any] = (None, None)

    def __init__(
        self,
        port: str | None = None,
        baudrate: int = 9600,
        bytesize: int = EIGHTBITS,
        parity: str = PARITY_NONE,
        stopbits: float = STOPBITS_ONE,
        timeout: float | None = None,
        xonxoff: bool = False,
        rtscts: bool = False,
        write_timeout: float | None = None,
        dsrdtr: bool | None = False,
        inter_byte_timeout: float | None = None,
        exclusive: bool | None = None,
        **kwargs: Any,
    ) -> None:
        self.is_open = False
        self.portstr: str | None = None
        self.name: str | None = None
        self._port: str | None = None
        for name in (*self._SAVED_SETTINGS, "exclusive", "rs485_mode"):
            setattr(self, "_" + name, None)
        self._rts_state: Any = True
        self._dtr_state: Any = True
        self._break_state: Any = False

        self.port = port
        self.baudrate = baudrate
        self.bytesize = bytesize
        self.parity = parity
        self.stopbits = stopbits
        self.timeout = timeout
        self.write_timeout = write_timeout
        self.xonxoff = xonxoff
        self.rtscts = rtscts
        self.dsrdtr = dsrdtr
        self.inter_byte_timeout = inter_byte_timeout
        self.exclusive = exclusive
        if "writeTimeout" in kwargs:
            self.write_timeout = kwargs.pop("writeTimeout")
        if "interCharTimeout" in kwargs:
            self.inter_byte_timeout = kwargs.pop("interCharTimeout")
        if kwargs:
            raise ValueError(f"unexpected keyword arguments: {kwargs!r}")
        if port is not None:
            self.open()

    # ---- What a kind of port defines ----

    def open(self) -> None:
        raise NotImplementedError

    def _reconfigure_port(self) -> None:
        """The settings have changed while the port is open."""

    def _update_rts_state(self) -> None:
        pass

    def _update_dtr_state(self) -> None:
        pass

    def _update_break_state(self) -> None:
        pass

    def reset_input_buffer(self) -> None:
        raise NotImplementedError

    def reset_output_buffer(self) -> None:
        raise NotImplementedError

    # ---- Settings ----

    @property
    def port(self) -> str | None:
        """The port as it was given."""
        return self._port

    @port.setter
    def port(self, port: str | None) -> None:
        if port is not None and not isinstance(port, str):
            raise ValueError(f'"port" must be None or a string, not {type(port)}')
        was_open = self.is_open
        if was_open:
            self.close()
        self.portstr = self._port = self.name = port
        if was_open:
            self.open()

    baudrate = _setting("baudrate", _rate, "Bits per second.")
    bytesize = _setting("bytesize", _one_of("byte size", "BYTESIZES"), "Data bits.")
    parity = _setting("parity", _one_of("parity", "PARITIES"), "N, E, O, M or S.")
    stopbits = _setting("stopbits", _one_of("stop bit size", "STOPBITS"), "1, 1.5 or 2.")
    timeout = _setting("timeout", _seconds, "Seconds that a read may take; None: until all is there.")
    write_timeout = _setting("write_timeout", _seconds, "Seconds that a write may take; None: no limit.")
    inter_byte_timeout = _setting("inter_byte_timeout", _seconds, "Kept; the time-out of the read counts.")
    xonxoff = _setting("xonxoff", _as_it_is, "Flow control by XON and XOFF.")
    rtscts = _setting("rtscts", _as_it_is, "Flow control by RTS and CTS.")
    dsrdtr = _setting(
        "dsrdtr", lambda port, value: port._rtscts if value is None else value, "True: DTR is left alone at the open."
    )
    exclusive = _setting("exclusive", _as_it_is, "True: nobody else may open the device; False, None: others may.")
    rs485_mode = _setting("rs485_mode", _as_it_is, "An rs485.RS485Settings, or None.")
    rts = _output("rts")
    dtr = _output("dtr")
    break_condition = _output("break")
    writeTimeout = _another("write_timeout")
    interCharTimeout = _another("inter_byte_timeout")

    # The times stand in the line itself, where its reads and writes find them.
    @property
    def _timeout(self) -> Any:
        return self._times[0]

    @_timeout.setter
    def _timeout(self, value: Any) -> None:
        self._set_times(value, self._times[1])
        self._times = (value, self._times[1])

    @property
    def _write_timeout(self) -> Any:
        return self._times[1]

    @_write_timeout.setter
    def _write_timeout(self, value: Any) -> None:
        self._set_times(self._times[0], value)
        self._times = (self._times[0], value)

    def get_settings(self) -> dict[str, Any]:
        """The settings, for apply_settings()."""
        return {name: getattr(self, "_" + name) for name in self._SAVED_SETTINGS}

    def apply_settings(self, d: dict[str, Any]) -> None:
        """Takes settings over; those that are missing stay as they are."""
        for name in self._SAVED_SETTINGS:
            if name in d and d[name] != getattr(self, "_" + name):
                setattr(self, name, d[name])

    def __repr__(self) -> str:
        shown = ("baudrate", "bytesize", "parity", "stopbits", "timeout", "xonxoff", "rtscts", "dsrdtr")
        settings = ", ".join(f"{name}={getattr(self, name)!r}" for name in shown)
        return f"{type(self).__name__}<id=0x{id(self):x}, open={self.is_open}>(port={self.portstr!r}, {settings})"

    # ---- As a file ----

    def readable(self) -> bool:
        return True

    def writable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return False

    def readinto(self, b: Any) -> int:
        view = memoryview(b).cast("B")
        data = self.read(len(view))
        view[: len(data)] = data
        return len(data)

    def __enter__(self) -> Any:
        if self._port is not None and not self.is_open:
            self.open()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def read_all(self) -> bytes:
        """What is there now."""
        return self.read(self.in_waiting)

    def iread_until(self, *args: Any, **kwargs: Any) -> Iterator[bytes]:
        """The pieces that read_until() gives, until one is empty."""
        while piece := self.read_until(*args, **kwargs):
            yield piece

    def send_break(self, duration: float = 0.25) -> None:
        if not self.is_open:
            raise PortNotOpenError
        self.break_condition = True
        time.sleep(duration)
        self.break_condition = False

    # ---- How the line reports and what it asks for ----

    def _failure(self, what: str, code: int) -> None:
        if code == -1:
            raise PortNotOpenError
        if code == 0:
            raise SerialTimeoutException("Write timeout")
        if code == -2:
            raise SerialException(
                f"{what} failed: the device {self.portstr} is gone (unplugged, or its far end closed)"
            )
        raise SerialException(f"{what} failed: {self.portstr} ({code})")

    _to_bytes = staticmethod(to_bytes)

    # ---- Names of older programs ----

    def flushInput(self) -> None:
        self.reset_input_buffer()

    def flushOutput(self) -> None:
        self.reset_output_buffer()

    def inWaiting(self) -> int:
        return self.in_waiting

    def sendBreak(self, duration: float = 0.25) -> None:
        self.send_break(duration)

    def setRTS(self, value: Any = 1) -> None:
        self.rts = value

    def setDTR(self, value: Any = 1) -> None:
        self.dtr = value

    def getCTS(self) -> Any:
        return self.cts  # type: ignore[attr-defined]

    def getDSR(self) -> Any:
        return self.dsr  # type: ignore[attr-defined]

    def getRI(self) -> Any:
        return self.ri  # type: ignore[attr-defined]

    def getCD(self) -> Any:
        return self.cd  # type: ignore[attr-defined]

    def setPort(self, port: str | None) -> None:
        self.port = port

    def getSettingsDict(self) -> dict[str, Any]:
        return self.get_settings()

    def applySettingsDict(self, d: dict[str, Any]) -> None:
        self.apply_settings(d)

    def isOpen(self) -> bool:
        return self.is_open

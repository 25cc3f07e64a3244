"""Serial: a port on a device of this machine, or on any other path that the library opens."""

from __future__ import annotations

import errno
import os
import sys
import time

from .serialutil import (
    PortNotOpenError, SerialBase, SerialException, SerialTimeoutException, Timeout, iterbytes, to_bytes,
)  # fmt: skip

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

    from .rs485 import RS485Settings

__all__ = ["PortNotOpenError", "PosixPollSerial", "Serial", "SerialBase", "SerialException", "SerialTimeoutException",
           "Timeout", "VTIMESerial", "iterbytes", "to_bytes"]  # fmt: skip

_FLOW_RTS_CTS, _FLOW_XON_XOFF, _FLOW_NONE = 0, 1, 2
CTS, DSR, RING, CARRIER = 0x10, 0x20, 0x40, 0x80
_SETTINGS_REFUSED = -36
_INTERRUPTED, _CANNOT, _CANCELLED = -5, -4, -3
_CLOSE_SECONDS = 30  # as long as the kernel itself lets a close wait for what was written
_STANDSTILL_MS = 1000  # a far end that takes nothing that long will not


# Numbers of the kernel that programs take from here for calls of their own.
BOTHER, CMSPAR = 0o010000, 0o10000000000
TIOCINQ, TIOCSBRK, TIOCCBRK = 0x541B, 0x5427, 0x5428
TCGETS2, TCSETS2 = 0x802C542A, 0x402C542B
TIOCGRS485, TIOCSRS485 = 0x542E, 0x542F
SER_RS485_ENABLED, SER_RS485_RTS_ON_SEND, SER_RS485_RTS_AFTER_SEND, SER_RS485_RX_DURING_TX = 0x01, 0x02, 0x04, 0x10
_OF_TERMIOS = {
    "TIOCMGET", "TIOCMBIS", "TIOCMBIC", "TIOCMSET", "TIOCM_DTR", "TIOCM_RTS", "TIOCM_CTS", "TIOCM_CAR", "TIOCM_RNG",
    "TIOCM_DSR", "TIOCM_CD", "TIOCM_RI", "TIOCOUTQ",
}  # fmt: skip


def __getattr__(name: str) -> Any:
    """Those that Python knows itself: TIOCM_RTS, and TIOCM_RTS_str, which is how ioctl takes it."""
    import termios

    whole, packed, _ = name.partition("_str")
    if packed and whole in ("TIOCM_DTR", "TIOCM_RTS", "TIOCM_zero"):
        return getattr(termios, whole, 0).to_bytes(4, sys.byteorder)
    if name in _OF_TERMIOS:
        return getattr(termios, name)
    raise AttributeError(f"module {__name__!r} has no attribute {name!r}")


class _RateConstants:
    """The kernel's codes of its rates, looked up when somebody asks for them."""

    def __get__(self, port: Any, kind: Any = None) -> dict[int, int]:
        import termios

        known = ((rate, getattr(termios, f"B{rate}", None)) for rate in (0, *SerialBase.BAUDRATES))
        return {rate: code for rate, code in known if code is not None}


_BESIDE = os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK | os.O_CLOEXEC


def _reason(device: str) -> int | None:
    """The error number for a device that was not opened; None when the host opens it but it is no tty."""
    try:
        descriptor = os.open(device, _BESIDE)
    except OSError as error:
        return error.errno
    try:
        return errno.EBUSY if os.isatty(descriptor) else None
    finally:
        os.close(descriptor)


def _hold(path: str) -> int:
    """The device open beside what the library does with it, -1 when that cannot be."""
    device = path.partition("?")[0]
    try:
        return os.open(device, _BESIDE) if device.startswith("/") else -1
    except OSError:
        return -1


def _hangs_up(descriptor: int) -> bool:
    """Whether the host lowers the lines at the last close (stty hupcl), as far as it tells."""
    import termios

    try:
        return bool(termios.tcgetattr(descriptor)[2] & termios.HUPCL)
    except (termios.error, ValueError):
        return True


class Serial(SerialBase):
    """The port of most programs. Beside what pyserial takes, `port` may be any path of the library, options
    included: "/dev/ttyUSB0?keep=yes", "usb:0403:6001", "null-modem:bench"."""

    BAUDRATE_CONSTANTS = _RateConstants()

    _lib: Any = None
    _applied: tuple[Any, ...] = ()
    _low_latency: bool | None = None
    _queue: int = -1

    # ---- Opening and closing ----

    def _given_path(self) -> str:
        """The path of the library for the port that was asked for."""
        port = str(self.portstr)
        head = port.partition("?")[0]
        scheme = head.partition(":")[0]
        if not head or head.startswith("/") or scheme != head or head.upper().startswith("COM"):
            return port
        return os.path.abspath(head) + port[len(head) :]

    def _library_path(self, hangs_up: bool = True) -> str:
        """The same with what the settings say, unless the path itself says otherwise."""
        path = self._given_path()
        head, mark, said = path.partition("?")
        if mark and os.path.exists(path):
            return path  # a file that is really named so
        keys = {option.partition("=")[0] for option in said.split("&")}
        wanted = {}
        if head.startswith("/") or head.startswith("usb:"):
            # Others may open the device, and it keeps its settings: programs (and stty before them) count on it.
            wanted = {"exclusive": "yes" if self._exclusive else "no", "restore": "no"}
            if not hangs_up:
                wanted["close"] = "leave"
        # A handshake that moves a line leaves it alone at the open.
        if not self._dtr_state and not self._dsrdtr:
            wanted["dtr"] = "off"
        if not self._rts_state and not self._rtscts:
            wanted["rts"] = "off"
        more = [f"{key}={value}" for key, value in wanted.items() if key not in keys]
        return "&".join([path, *more]) if mark and said else (f"{head}?{'&'.join(more)}" if more else path)

    def open(self) -> None:
        """Opens the port with the settings as they are."""
        if self._port is None:
            raise SerialException("Port must be configured before it can be used.")
        if self.is_open:
            raise SerialException("Port is already open.")
        from .._library import encoded, lib

        self._lib = lib
        # Who has said "stty -hupcl" wants the lines to stay as they are at a close, so that a board is not reset.
        held = _hold(self._given_path()) if self._dtr_state and self._rts_state else -1
        try:
            path = self._library_path(_hangs_up(held))
            number = lib.ComHostOpen(encoded(path), self._baudrate or 9600, self._framing().encode())
        finally:
            if held >= 0:
                os.close(held)
        if number < 0:
            self._refused(number)
        descriptor = lib.ComHostDescriptor(number)
        self._queue = descriptor
        is_tty = descriptor >= 0 and os.isatty(descriptor)
        self._attach(number, descriptor if is_tty and "keep=" not in path else -1, 1)
        self._applied = (self._baudrate or 9600, self._framing(), _FLOW_NONE, self._exclusive, None, 0)
        try:
            self._reconfigure_port()
            lib.Com_Flush(number, 0)
        except BaseException:
            self._detach(0)
            raise
        self.is_open = True

    def _refused(self, code: int) -> None:
        from .._library import error_text

        text = error_text() or f"result {code}"
        if code == _SETTINGS_REFUSED and self._baudrate not in self.BAUDRATES:
            raise ValueError(f"Failed to set custom baud rate ({self._baudrate}): {text}")
        if code == -28:
            raise SerialException(errno.EMFILE, f"could not open port {self._port}: no port number is free")
        if self._exclusive and ("busy" in text or "locked" in text):
            raise SerialException(errno.EAGAIN, f"Could not exclusively lock port {self._port}: {text}")
        told = f"could not open port {self._port}: {text}"
        device = self._given_path().partition("?")[0]
        reason = _reason(device) if device[:1] in ("/", "") and code != _SETTINGS_REFUSED else None
        raise SerialException(told) if reason is None else SerialException(reason, told)

    def close(self) -> None:
        """Closes the port when what was written has left, as the kernel does."""
        if not self.is_open:
            return
        self.is_open = False
        try:
            self._drain_before_close()
        finally:
            self._detach(0)

    def _drain_before_close(self) -> None:
        """Waits while what was written moves."""
        latest = time.monotonic() + _CLOSE_SECONDS
        try:
            left = self._call("ComOutBufStatus")
            while (
                left > 0
                and time.monotonic() < latest
                and self._call("ComHostDrain", _STANDSTILL_MS) in (0, _INTERRUPTED)
            ):
                before, left = left, self._call("ComOutBufStatus")
                if left >= before:
                    return
        except PortNotOpenError:
            return  # somebody else has closed it meanwhile

    # ---- Settings ----

    def _framing(self) -> str:
        return f"{self._bytesize}{self._parity}{self._stopbits:g}"

    def _flow(self) -> int:
        if self._rtscts:
            return _FLOW_RTS_CTS
        return _FLOW_XON_XOFF if self._xonxoff else _FLOW_NONE

    def _reconfigure_port(self, force_update: bool = False) -> None:
        both = 1 if self._rtscts and self._xonxoff else 0
        wanted = (self._baudrate, self._framing(), self._flow(), self._exclusive, self._rs485_mode, both)
        if wanted == self._applied and not force_update:
            return
        before, self._applied = self._applied, ()
        if wanted[3] != before[3] if before else wanted[3] is not None:
            self._lock()
        if wanted[:3] != before[:3] or force_update:
            self._set_line()
        if both:
            self._add_xon_xoff()
        if self._rs485_mode is not None:
            self._set_rs485_mode(self._rs485_mode)
        elif before and before[4] is not None:
            self._set_rs485_mode(None)
        self._applied = wanted

    def _set_line(self) -> None:
        from .._library import error_text

        if self._baudrate == 0:  # hangs up
            self._call("ComClearDTR")
            self._call("ComClearRTS")
        code = self._call("ComHostSetLine", self._baudrate, self._framing().encode(), self._flow())
        if code == 1:
            return
        if code in (-1, -4) and self._baudrate not in self.BAUDRATES:
            raise ValueError(f"Failed to set custom baud rate ({self._baudrate}): {error_text()}")
        if code == -2:
            self._failure("setting the line", code)
        raise SerialException(f"Could not configure port: {error_text() or code}")

    def _add_xon_xoff(self) -> None:
        """XON and XOFF beside RTS and CTS, which the library's flow modes do not have together."""
        import termios

        settings = termios.tcgetattr(self.fileno())
        settings[0] |= termios.IXON | termios.IXOFF
        termios.tcsetattr(self.fileno(), termios.TCSANOW, settings)

    def _lock(self) -> None:
        import fcntl
        import termios

        if self._queue < 0:
            return
        try:
            if self._exclusive:
                fcntl.flock(self._queue, fcntl.LOCK_EX | fcntl.LOCK_NB)
            else:
                fcntl.flock(self._queue, fcntl.LOCK_UN)
                fcntl.ioctl(self._queue, termios.TIOCNXCL)
        except OSError as error:
            raise SerialException(error.errno, f"Could not exclusively lock port {self._port}: {error}") from error

    def _set_rs485_mode(self, settings: RS485Settings | None) -> None:
        from .rs485 import apply_to_driver

        apply_to_driver(self._queue, settings)

    def set_low_latency_mode(self, low_latency_settings: bool) -> None:
        """Whether the driver hands over each byte at once."""
        import array
        import fcntl
        import termios

        if not self.is_open:
            raise PortNotOpenError
        low_latency, flags = 0x2000, 4
        record = array.array("i", [0] * 32)
        try:
            fcntl.ioctl(self._queue, termios.TIOCGSERIAL, record)
            record[flags] = record[flags] & ~low_latency | (low_latency if low_latency_settings else 0)
            fcntl.ioctl(self._queue, termios.TIOCSSERIAL, record)
        except OSError as error:
            raise ValueError(f"Failed to update ASYNC_LOW_LATENCY flag to {low_latency_settings}: {error}") from error

    # ---- Calls of the library ----

    def _call(self, name: str, *arguments: Any) -> int:
        result: int = self._on_port(getattr(self._lib, name), *arguments)
        return result

    @property
    def out_waiting(self) -> int:
        """Bytes written that have not left yet."""
        return max(self._call("ComOutBufStatus"), 0)

    def flush(self) -> None:
        """Waits until all that was written has left on the line."""
        from ..waits import pieces

        for piece in pieces(None):
            code = self._call("ComHostDrain", int(piece * 1000))
            if code == 1:
                return
            if code not in (0, _INTERRUPTED, _CANCELLED):
                self._failure("flush", code)

    def send_break(self, duration: float = 0.25) -> None:
        """A break of that many seconds, whatever break_condition says."""
        self._call("ComSetBreak_ON")
        try:
            time.sleep(duration)
        finally:
            if self.is_open:
                self._call("ComSetBreak_OFF")

    def reset_input_buffer(self) -> None:
        """Drops what has been received and not read."""
        self._forget_ahead()
        self._call("Com_Flush", 0)
        self._forget_ahead()

    def reset_output_buffer(self) -> None:
        """Drops what has been written and has not left yet."""
        self._call("ComFlushOutBuf")

    # ---- Lines ----

    def _set_output(self, name: str) -> None:
        if self._call(name) < 0:
            raise OSError(errno.ENOTTY, os.strerror(errno.ENOTTY))

    def _update_rts_state(self) -> None:
        self._set_output("ComSetRTS" if self._rts_state else "ComClearRTS")

    def _update_dtr_state(self) -> None:
        self._set_output("ComSetDTR" if self._dtr_state else "ComClearDTR")

    def _update_break_state(self) -> None:
        self._call("ComSetBreak_ON" if self._break_state else "ComSetBreak_OFF")

    def _input(self, line: int) -> bool:
        lines = self._call("ComHostGetLines")
        if lines == _CANNOT:
            raise OSError(errno.ENOTTY, os.strerror(errno.ENOTTY))
        if lines < 0:
            self._failure("reading the lines", lines)
        return bool(lines & line)

    @property
    def cts(self) -> bool:
        return self._input(CTS)

    @property
    def dsr(self) -> bool:
        return self._input(DSR)

    @property
    def ri(self) -> bool:
        return self._input(RING)

    @property
    def cd(self) -> bool:
        return self._input(CARRIER)

    # ---- The device itself ----

    def fileno(self) -> int:
        """The device's own descriptor. From now on no byte leaves it but those that a read asks for, so whoever
        watches it or reads it misses none; a read gives what was received before first."""
        if not self.is_open:
            raise PortNotOpenError
        self._read_ahead(False)
        descriptor = self._call("ComHostDescriptor")
        if descriptor < 0:
            if descriptor == _CANNOT:
                raise OSError(errno.ENOTSUP, f"{self.portstr} has no descriptor")
            self._failure("fileno", descriptor)
        return descriptor

    @property
    def fd(self) -> int | None:
        """The same as fileno(), None while the port is closed."""
        return self.fileno() if self.is_open else None

    def set_input_flow_control(self, enable: bool = True) -> None:
        """Sends XON (True) or XOFF to the far end."""
        import termios

        termios.tcflow(self.fileno(), termios.TCION if enable else termios.TCIOFF)

    def set_output_flow_control(self, enable: bool = True) -> None:
        """Goes on with output (True) or holds it."""
        import termios

        termios.tcflow(self.fileno(), termios.TCOON if enable else termios.TCOOFF)

    def nonblocking(self) -> None:
        """Does nothing; older programs call it."""
        import warnings

        warnings.warn("nonblocking() has no effect, already nonblocking", DeprecationWarning, stacklevel=2)


class PosixPollSerial(Serial):
    """The same port; pyserial has a second way of waiting under this name."""


class VTIMESerial(Serial):
    """The same port, whose reads nobody cancels: programs ask whether it has cancel_read."""

    cancel_read = property()  # type: ignore[assignment]

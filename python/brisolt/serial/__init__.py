"""The interface of pyserial 3.5 on brisolt: `import brisolt.serial as serial`, or leave the program as it is and run
it by `python3 -m brisolt.compat`."""

from __future__ import annotations

from .serialposix import PosixPollSerial, Serial, VTIMESerial

from .serialutil import (
    CR, EIGHTBITS, FIVEBITS, LF, PARITY_EVEN, PARITY_MARK, PARITY_NAMES, PARITY_NONE, PARITY_ODD, PARITY_SPACE,
    SEVENBITS, SIXBITS, STOPBITS_ONE, STOPBITS_ONE_POINT_FIVE, STOPBITS_TWO, XOFF, XON, PortNotOpenError, SerialBase,
    SerialException, SerialTimeoutException, Timeout, basestring, iterbytes, to_bytes, unicode,
)  # fmt: skip

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

__all__ = [
    "CR", "EIGHTBITS", "FIVEBITS", "LF", "PARITY_EVEN", "PARITY_MARK", "PARITY_NAMES", "PARITY_NONE", "PARITY_ODD",
    "PARITY_SPACE", "PortNotOpenError", "PosixPollSerial", "SEVENBITS", "SIXBITS", "STOPBITS_ONE",
    "STOPBITS_ONE_POINT_FIVE", "STOPBITS_TWO", "Serial", "SerialBase", "SerialException", "SerialTimeoutException",
    "Timeout", "VERSION", "VTIMESerial", "XOFF", "XON", "basestring", "iterbytes", "protocol_handler_packages",
    "serial_for_url", "to_bytes", "unicode",
]  # fmt: skip

__version__ = "3.5"  # of the interface
VERSION = __version__

protocol_handler_packages = [__name__ + ".urlhandler"]


def _handler(protocol: str) -> Any:
    """The module that handles URLs of this protocol: protocol_NAME in one of the packages."""
    from importlib import import_module

    for package in protocol_handler_packages:
        try:
            return import_module(f"{package}.protocol_{protocol}")
        except ImportError:
            continue
    raise ValueError(f"invalid URL, protocol {protocol!r} not known")


def serial_for_url(url: Any, *args: Any, do_not_open: bool = False, **kwargs: Any) -> Any:
    """A port by its name, or by a URL ("socket://host:7000"), opened unless `do_not_open`. Other arguments are those
    of Serial."""
    kind: Any = Serial
    if isinstance(url, str) and "://" in url:
        handler = _handler(url.lower().partition("://")[0])
        if hasattr(handler, "serial_class_for_url"):
            url, kind = handler.serial_class_for_url(url)
        else:
            kind = handler.Serial
    port = kind(None, *args, **kwargs)
    port.port = url
    if not do_not_open:
        port.open()
    return port

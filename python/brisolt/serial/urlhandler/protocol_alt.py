"""alt://PORT?class=NAME: another class of the package on the same port."""

from __future__ import annotations

from ... import serial
from . import refuse, split

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

FORM = "alt://port[?option[=value][&option[=value]]]"


def serial_class_for_url(url: str) -> tuple[str, Any]:
    """The port and the class."""
    parts, options = split(url, "alt", FORM)
    name = options.pop("class", "Serial")
    if options:
        raise refuse(FORM, f"unknown option: {next(iter(options))!r}")
    kind = getattr(serial, name, None)
    if kind is None:
        raise ValueError(f"unknown class: {name!r}")
    if not isinstance(kind, type) or not issubclass(kind, serial.Serial):
        raise ValueError(f"class {name!r} is not an instance of Serial")
    return parts.netloc + parts.path, kind

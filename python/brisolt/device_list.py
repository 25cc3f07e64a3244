"""The serial devices of this machine, and their coming and going."""

from __future__ import annotations

import time
from collections.abc import Iterator
from dataclasses import dataclass, fields

from ._library import error_text, ffi, lib
from .errors import error_of
from .messages import next_message

__all__ = ["Device", "DeviceChange", "devices", "watch_devices"]

_NEWS = 0x8011  # COM_HOST_MESSAGE_DEVICES


@dataclass(frozen=True)
class Device:
    """A serial device. Texts are "" and numbers None where the host does not tell."""

    path: str
    stable_path: str  #: the link that stays the same (/dev/serial/by-id/...)
    description: str
    manufacturer: str
    product: str
    serial_number: str
    driver: str
    location: str  #: the socket it is plugged into
    vendor_id: int | None
    product_id: int | None
    interface_number: int | None
    holder: int | None  #: the process that has it open, as far as we may see
    holder_name: str


def _field_name(name: str) -> str:
    """stable_path as the library writes it: stablePath."""
    first, *rest = name.split("_")
    return first + "".join(part.capitalize() for part in rest)


def _value(info: object, name: str) -> str | int | None:
    value = getattr(info, _field_name(name))
    if not isinstance(value, int):
        return str(ffi.string(value).decode(errors="replace"))
    none = 0 if name == "holder" else -1
    return None if value == none else value


def devices() -> list[Device]:
    """The devices that are there, sorted by path. None is opened."""
    info = ffi.new("ComHostDeviceInfo *")
    info.size = ffi.sizeof("ComHostDeviceInfo")
    found: list[Device] = []
    while (result := lib.ComHostGetDeviceInfo(len(found), info)) == 1:
        found.append(Device(**{field.name: _value(info, field.name) for field in fields(Device)}))  # type: ignore[arg-type]
    if result < 0:
        raise error_of("listing devices", result, error_text())
    return found


@dataclass(frozen=True)
class DeviceChange:
    """A device that has come (`there` True) or gone."""

    there: bool
    device: Device


def _changes(before: dict[str, Device], after: dict[str, Device]) -> list[DeviceChange]:
    gone = [DeviceChange(False, before[path]) for path in before if path not in after]
    come = [DeviceChange(True, after[path]) for path in after if path not in before]
    return gone + come


def watch_devices(timeout: float | None = None) -> Iterator[DeviceChange]:
    """Each device that comes or goes from now on, until `timeout` seconds are over (None: for ever). One loop of the
    program watches at a time, on the thread that runs it; nothing polls."""
    if lib.ComHostSetDeviceMessage(0, lib.ComHostThreadId()) != 1:
        from .errors import Unable

        raise Unable("watching devices: the host cannot tell", -4)
    known = {device.path: device for device in devices()}
    end = None if timeout is None else time.monotonic() + timeout
    try:
        while True:
            message = next_message(None if end is None else max(end - time.monotonic(), 0))
            if message is None:
                return
            if message[0] != _NEWS:
                continue
            now = {device.path: device for device in devices()}
            yield from _changes(known, now)
            known = now
    finally:
        lib.ComHostSetDeviceMessage(0, 0)

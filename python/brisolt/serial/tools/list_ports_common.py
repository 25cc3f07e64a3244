"""The record of a port in a list."""

from __future__ import annotations

import glob
import os
import re

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Iterable

__all__ = ["ListPortInfo", "list_links", "numsplit"]


def numsplit(text: str) -> list[str | int]:
    """Texts and numbers, so that ttyS10 sorts behind ttyS9."""
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", text) if part]


def _order(text: str) -> list[tuple[bool, str | int]]:
    return [(isinstance(part, str), part) for part in numsplit(text)]


class ListPortInfo:
    """A port: `device`, `name`, `description`, `hwid`, and of a USB device what it tells of itself. As a sequence
    it is device, description and hwid."""

    def __init__(self, device: str, skip_link_detection: bool = False) -> None:
        self.device = device
        self.name = os.path.basename(device)
        self.description = "n/a"
        self.hwid = "n/a"
        self.vid: int | None = None
        self.pid: int | None = None
        self.serial_number: str | None = None
        self.location: str | None = None
        self.manufacturer: str | None = None
        self.product: str | None = None
        self.interface: str | None = None
        if not skip_link_detection and os.path.islink(device):
            self.hwid = f"LINK={os.path.realpath(device)}"

    def usb_description(self) -> str:
        if self.interface is not None:
            return f"{self.product} - {self.interface}"
        return self.product if self.product is not None else self.name

    def usb_info(self) -> str:
        serial_number = f" SER={self.serial_number}" if self.serial_number is not None else ""
        location = f" LOCATION={self.location}" if self.location is not None else ""
        return f"USB VID:PID={self.vid or 0:04X}:{self.pid or 0:04X}{serial_number}{location}"

    def apply_usb_info(self) -> None:
        self.description = self.usb_description()
        self.hwid = self.usb_info()

    def __eq__(self, other: object) -> bool:
        return isinstance(other, ListPortInfo) and self.device == other.device

    def __hash__(self) -> int:
        return hash(self.device)

    def __lt__(self, other: object) -> bool:
        if not isinstance(other, ListPortInfo):
            raise TypeError(f"unorderable types: {type(self).__name__}() and {type(other).__name__}()")
        return _order(self.device) < _order(other.device)

    def __str__(self) -> str:
        return f"{self.device} - {self.description}"

    def __getitem__(self, index: int) -> str:
        return (self.device, self.description, self.hwid)[index]


def list_links(devices: Iterable[str]) -> list[str]:
    """The links in /dev that lead to one of `devices`."""
    known = set(devices)
    return [path for path in glob.glob("/dev/*") if os.path.islink(path) and os.path.realpath(path) in known]

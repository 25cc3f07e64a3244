"""The serial ports of this machine, as the library lists them, with what the kernel's files add."""

from __future__ import annotations

import os

from . import list_ports_common

__all__ = ["SysFS", "comports"]


class SysFS(list_ports_common.ListPortInfo):
    """A port with what the kernel tells of its device."""

    def __init__(self, device: str) -> None:
        super().__init__(device)
        real = os.path.realpath(device)
        node = f"/sys/class/tty/{os.path.basename(real)}/device"
        self.device_path = os.path.realpath(node) if os.path.exists(node) else None
        self.subsystem = None if self.device_path is None else os.path.basename(os.path.realpath(node + "/subsystem"))
        self.usb_device_path: str | None = None
        self.usb_interface_path: str | None = None
        if self.device_path is not None and self.subsystem == "usb-serial":
            self.usb_interface_path = os.path.dirname(self.device_path)
        elif self.subsystem == "usb":
            self.usb_interface_path = self.device_path
        if self.usb_interface_path is not None:
            self._learn_usb(self.usb_interface_path)
        elif self.device_path is not None and self.subsystem in ("pnp", "amba"):
            self.description = self.name
            known = self.read_line(self.device_path, "id") if self.subsystem == "pnp" else self.device_path
            self.hwid = os.path.basename(known or "n/a")
        if real != device and os.path.islink(device):
            self.hwid += f" LINK={real}"

    def _learn_usb(self, interface: str) -> None:
        device = self.usb_device_path = os.path.dirname(interface)
        self.vid = int(self.read_line(device, "idVendor") or "0", 16)
        self.pid = int(self.read_line(device, "idProduct") or "0", 16)
        self.serial_number = self.read_line(device, "serial")
        self.manufacturer = self.read_line(device, "manufacturer")
        self.product = self.read_line(device, "product")
        self.interface = self.read_line(interface, "interface")
        several = (self.read_line(device, "bNumInterfaces") or "1").strip() != "1"
        self.location = os.path.basename(interface if several else device)
        self.apply_usb_info()

    @staticmethod
    def read_line(*path: str) -> str | None:
        """The first line of a file, None when it cannot be read."""
        try:
            with open(os.path.join(*path), errors="replace") as file:
                return file.readline().strip()
        except OSError:
            return None


def comports(include_links: bool = False) -> list[list_ports_common.ListPortInfo]:
    """The ports that are there, with `include_links` the links to them as well."""
    from ...device_list import devices

    paths = [device.path for device in devices()]
    if include_links:
        paths += list_ports_common.list_links(paths)
    return [SysFS(path) for path in paths]

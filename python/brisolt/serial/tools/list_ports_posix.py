"""The same as list_ports_linux; programs ask for it by this name, too."""

from __future__ import annotations

from .list_ports_linux import comports

__all__ = ["comports"]

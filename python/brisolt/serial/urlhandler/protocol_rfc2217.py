"""rfc2217://HOST:PORT[?OPTIONS]: a serial port of another machine."""

from __future__ import annotations

from ..rfc2217 import Serial

__all__ = ["Serial"]

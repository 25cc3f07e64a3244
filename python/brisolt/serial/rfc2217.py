"""A serial port of another machine: telnet with the com-port option, the library's rfc2217:HOST:PORT."""

from __future__ import annotations

from . import serialposix
from .urlhandler import address, logger, refuse, split

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

__all__ = ["Serial"]

FORM = "rfc2217://<host>:<port>[?option[&option...]]"


class Serial(serialposix.Serial):
    """Options of the URL: timeout (seconds, the limit of one request to the peer), logging; ign_set_control and
    poll_modem, which this port does not need, are taken."""

    logger: Any = None

    def from_url(self, url: str) -> tuple[str, int]:
        """Host and port; options are applied."""
        parts, options = split(url, "rfc2217", FORM)
        self._answer = 3.0
        for name, value in options.items():
            if name == "logging":
                self.logger = logger("rfc2217", value, FORM)
            elif name == "timeout":
                try:
                    self._answer = float(value)
                except ValueError as error:
                    raise refuse(FORM, error) from error
            elif name not in ("ign_set_control", "poll_modem"):
                raise refuse(FORM, f"unknown option: {name!r}")
        return address(parts, FORM)

    def _given_path(self) -> str:
        host, port = self.from_url(str(self.portstr))
        name = f"[{host}]" if ":" in host else host
        return f"rfc2217:{name}:{port}?answer={max(int(self._answer * 1000), 1)}"

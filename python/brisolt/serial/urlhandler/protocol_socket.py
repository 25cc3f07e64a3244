"""socket://HOST:PORT[?logging=LEVEL]: bytes over TCP, the library's tcp:HOST:PORT. Settings go nowhere."""

from __future__ import annotations

from .. import serialposix
from ..serialutil import PortNotOpenError
from . import address, logger, refuse, split

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

FORM = "socket://<host>:<port>[?logging={debug|info|warning|error}]"


class Serial(serialposix.Serial):
    logger: Any = None

    def from_url(self, url: str) -> tuple[str, int]:
        """Host and port; options are applied."""
        parts, options = split(url, "socket", FORM)
        for name, value in options.items():
            if name != "logging":
                raise refuse(FORM, f"unknown option: {name!r}")
            self.logger = logger("socket", value, FORM)
        return address(parts, FORM)

    def _given_path(self) -> str:
        host, port = self.from_url(str(self.portstr))
        return f"tcp:[{host}]:{port}" if ":" in host else f"tcp:{host}:{port}"

    def _library_path(self, hangs_up: bool = True) -> str:
        return self._given_path()  # settings and lines go nowhere

    def _update_rts_state(self) -> None:
        self._ignored("rts", self._rts_state)

    def _update_dtr_state(self) -> None:
        self._ignored("dtr", self._dtr_state)

    def _update_break_state(self) -> None:
        self._ignored("break", self._break_state)

    def _ignored(self, what: str, value: object) -> None:
        if self.logger:
            self.logger.info("ignored %s %r", what, value)

    # A network line has no lines of its own: what programs wait for is there.
    def _input(self, line: int) -> bool:
        if not self.is_open:
            raise PortNotOpenError
        return line != serialposix.RING

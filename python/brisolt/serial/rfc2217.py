"""Serial ports over a network, telnet with the com-port option: Serial is the library's rfc2217:HOST:PORT,
PortManager the far end."""

from __future__ import annotations

from . import rfc2217_codes, serialposix
from .port_manager import *  # noqa: F403
from .rfc2217_codes import *  # noqa: F403
from .urlhandler import LOGGER_LEVELS as LOGGER_LEVELS
from .urlhandler import address, logger, refuse, split

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

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

    # ---- Requests of the protocol, by its codes ----

    def get_modem_state(self) -> int:
        """The inputs as MODEMSTATE_MASK_ bits."""
        return rfc2217_codes.modem_state(self)

    def rfc2217_set_control(self, value: bytes) -> None:
        """Switches an output line or the flow control by a SET_CONTROL_ code."""
        if value in rfc2217_codes.SWITCHES:
            name, on = rfc2217_codes.SWITCHES[value]
            setattr(self, name, on)
        elif value in rfc2217_codes.FLOWS:
            rfc2217_codes.set_flow(self, value)
        else:
            raise ValueError(f"{value!r} switches no line and no flow control")

    def rfc2217_send_purge(self, value: bytes) -> None:
        """Drops what is queued on the peer's side and on ours, by a PURGE_ code."""
        rfc2217_codes.purge(self, value)

    def rfc2217_flow_server_ready(self) -> None:
        """Returns at once: a peer that asks for a pause is given it by the port itself."""

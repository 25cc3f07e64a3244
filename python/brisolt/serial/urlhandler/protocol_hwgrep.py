"""hwgrep://REGEXP[&n=N][&skip_busy]: the first port (or the N-th) that list_ports.grep finds."""

from __future__ import annotations

from .. import serialposix, serialutil
from ..tools import list_ports

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

_port: Any = serialposix.Serial.port


def _is_free(device: str) -> bool:
    try:
        serialposix.Serial(device).close()
    except serialutil.SerialException:
        return False
    return True


class Serial(serialposix.Serial):
    def _set_port(self, value: Any) -> None:
        if isinstance(value, str) and value.lower().startswith("hwgrep://"):
            value = self.from_url(value)
        _port.__set__(self, value)

    port = property(_port.fget, _set_port)  # type: ignore[assignment]

    def from_url(self, url: str) -> str:
        """The device that the URL finds."""
        regexp, *options = url[len("hwgrep://") :].split("&")
        number, only_free = 1, False
        for option in options:
            name, _, value = option.partition("=")
            if name == "n":
                number = int(value)
                if number < 1:
                    raise ValueError(f'option "n" expects a positive integer: {value!r}')
            elif name == "skip_busy":
                only_free = True
            else:
                raise ValueError(f"unknown option: {name!r}")
        for info in sorted(list_ports.grep(regexp)):
            if only_free and not _is_free(info.device):
                continue
            number -= 1
            if number == 0:
                return info.device
        raise serialutil.SerialException(f"no ports found matching regexp {regexp!r}")

"""Half duplex: settings for the driver, and a port that switches RTS itself."""

from __future__ import annotations

import time

from .serialposix import (
    SER_RS485_ENABLED, SER_RS485_RTS_AFTER_SEND, SER_RS485_RTS_ON_SEND, SER_RS485_RX_DURING_TX, TIOCGRS485, TIOCSRS485,
    Serial,
)  # fmt: skip

TYPE_CHECKING = False
if TYPE_CHECKING:
    from typing import Any

__all__ = ["RS485", "RS485Settings"]


class RS485Settings:
    """Levels of RTS, whether we hear ourselves, and pauses in seconds (None: as they are)."""

    def __init__(
        self,
        rts_level_for_tx: bool = True,
        rts_level_for_rx: bool = False,
        loopback: bool = False,
        delay_before_tx: float | None = None,
        delay_before_rx: float | None = None,
    ) -> None:
        self.rts_level_for_tx = rts_level_for_tx
        self.rts_level_for_rx = rts_level_for_rx
        self.loopback = loopback
        self.delay_before_tx = delay_before_tx
        self.delay_before_rx = delay_before_rx


def apply_to_driver(descriptor: int, settings: RS485Settings | None) -> None:
    """Sets the driver's own half duplex; None switches it off. ValueError when it has none."""
    import array
    import fcntl

    record = array.array("i", [0] * 8)  # flags, the pause before, the pause after
    try:
        fcntl.ioctl(descriptor, TIOCGRS485, record)
        if settings is None:
            record[0] = 0
        else:
            record[0] = (
                record[0] & ~(SER_RS485_RTS_ON_SEND | SER_RS485_RTS_AFTER_SEND | SER_RS485_RX_DURING_TX)
                | SER_RS485_ENABLED
                | (SER_RS485_RTS_ON_SEND if settings.rts_level_for_tx else 0)
                | (SER_RS485_RTS_AFTER_SEND if settings.rts_level_for_rx else 0)
                | (SER_RS485_RX_DURING_TX if settings.loopback else 0)
            )
            for field, pause in (1, settings.delay_before_tx), (2, settings.delay_before_rx):
                if pause is not None:
                    record[field] = int(pause * 1000)
        fcntl.ioctl(descriptor, TIOCSRS485, record)
    except OSError as error:
        raise ValueError(f"Failed to set RS485 mode: {error}") from error


class RS485(Serial):
    """A port that raises RTS before it sends and lowers it when all has left, for devices whose driver cannot."""

    _settings: Any = None

    def write(self, b: Any) -> int:
        settings = self._settings
        if settings is None:
            return super().write(b)
        self.rts = settings.rts_level_for_tx
        if settings.delay_before_tx is not None:
            time.sleep(settings.delay_before_tx)
        count = super().write(b)
        self.flush()
        if settings.delay_before_rx is not None:
            time.sleep(settings.delay_before_rx)
        self.rts = settings.rts_level_for_rx
        return count

    @property
    def rs485_mode(self) -> Any:
        """The settings, None for a plain port. The driver is not asked for anything."""
        return self._settings

    @rs485_mode.setter
    def rs485_mode(self, settings: Any) -> None:
        self._settings = settings

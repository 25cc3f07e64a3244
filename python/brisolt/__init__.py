"""Serial ports: `brisolt.Port`, `brisolt.open_serial` for asyncio, `brisolt.devices`, and `brisolt.serial` for
programs that were written for pyserial.

Nothing is loaded before it is used: the library itself comes with the first open.
"""

TYPE_CHECKING = False
if TYPE_CHECKING:
    __version__: str
    from .aio import connect_serial as connect_serial
    from .aio import open_serial as open_serial
    from .device_list import Device as Device
    from .device_list import DeviceChange as DeviceChange
    from .device_list import devices as devices
    from .device_list import watch_devices as watch_devices
    from .errors import Cancelled as Cancelled
    from .errors import DeviceGone as DeviceGone
    from .errors import Error as Error
    from .errors import PortClosed as PortClosed
    from .errors import TimeOver as TimeOver
    from .errors import Unable as Unable
    from .port import Counters as Counters
    from .port import Event as Event
    from .port import Lines as Lines
    from .port import Port as Port

_HOMES = {
    "connect_serial": "aio",
    "open_serial": "aio",
    "Device": "device_list",
    "DeviceChange": "device_list",
    "devices": "device_list",
    "watch_devices": "device_list",
    "Cancelled": "errors",
    "DeviceGone": "errors",
    "Error": "errors",
    "Unable": "errors",
    "PortClosed": "errors",
    "TimeOver": "errors",
    "Counters": "port",
    "Event": "port",
    "Lines": "port",
    "Port": "port",
}

__all__ = list(_HOMES)


def __getattr__(name: str) -> object:
    if name == "__version__":
        from importlib.metadata import version

        return version(__name__)
    home = _HOMES.get(name)
    if home is None:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    from importlib import import_module

    value: object = getattr(import_module("." + home, __name__), name)
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    return sorted([*globals(), *__all__])

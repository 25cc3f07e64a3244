"""asyncio: a serial port as reader and writer, or as the transport of a protocol, on the watch of the event loop."""

from __future__ import annotations

import asyncio
import contextlib
import weakref
from collections.abc import Callable
from typing import Any

from ._library import ffi, lib
from .errors import Error
from .port import Event, Port

__all__ = ["SerialTransport", "connect_serial", "open_serial"]

_HIGH_WATER = 65536
_LOOK_AGAIN = 0.02  # seconds; for what no descriptor tells: room in a ring, the end of a close
_NETWORKS = {"tcp", "tls", "rfc2217", "rfc2217-tls"}
_STANDSTILL = 5.0  # of a close: a far end that takes nothing that long will not


class _Messages:
    """The library's messages to the thread of a loop: bytes of ports without a descriptor, devices that are back."""

    _of_loops: weakref.WeakKeyDictionary[asyncio.AbstractEventLoop, _Messages] = weakref.WeakKeyDictionary()

    def __init__(self) -> None:
        self.looks: set[Callable[[], None]] = set()

    @classmethod
    def of(cls, loop: asyncio.AbstractEventLoop) -> _Messages:
        return cls._of_loops.setdefault(loop, cls())

    def add(self, loop: asyncio.AbstractEventLoop, look: Callable[[], None]) -> None:
        if not self.looks:
            loop.add_reader(lib.ComHostMessageDescriptor(), self._arrived)
        self.looks.add(look)

    def remove(self, loop: asyncio.AbstractEventLoop, look: Callable[[], None]) -> None:
        if look in self.looks:
            self.looks.remove(look)
            if not self.looks:
                loop.remove_reader(lib.ComHostMessageDescriptor())

    def _arrived(self) -> None:
        message = ffi.new("ComHostMessage *")
        while lib.ComHostGetMessage(message, 0) == 1:
            if message.window != 0:
                lib.ComHostDispatchMessage(message)
        for look in list(self.looks):
            look()


class SerialTransport(asyncio.Transport):
    """A port as a transport. get_extra_info("port") is the brisolt.Port."""

    def __init__(self, loop: asyncio.AbstractEventLoop, protocol: asyncio.BaseProtocol, port: Port) -> None:
        super().__init__({"port": port})
        self._loop, self._protocol, self._port = loop, protocol, port
        self._messages = _Messages.of(loop)
        self._descriptor: int | None = None
        self._buffer = bytearray()
        self._low, self._high = _HIGH_WATER // 4, _HIGH_WATER
        self._reading = self._told = self._full = self._closing = self._lost = False
        lib.ComHostSetEventMessage(port.number, int(Event.GONE | Event.BACK), 0, lib.ComHostThreadId())
        self._messages.add(loop, self._look)
        loop.call_soon(self._begin)

    def _begin(self) -> None:
        self._protocol.connection_made(self)
        self.resume_reading()

    # ---- Reading ----

    def _watch(self) -> None:
        """Has the loop tell when bytes come: the device's descriptor where it has one, else a message."""
        self._backs = self._port.counters().back
        descriptor = lib.ComHostDescriptor(self._port.number)
        if descriptor >= 0:
            self._descriptor = descriptor
            if self._reading:
                self._attend(self._loop.add_reader, self._read_ready)
        elif descriptor == -4 and not self._told:
            self._told = True
            lib.ComSetNotifyThreadMessageAnyChar(self._port.number, lib.ComHostThreadId())

    def _attend(self, add: Callable[..., object], call: Callable[[], None]) -> None:
        """Has the loop watch the descriptor, which a device that has gone this moment takes along."""
        try:
            add(self._descriptor, call)
        except OSError:
            self._unwatch()

    def _unwatch(self) -> None:
        descriptor, self._descriptor = self._descriptor, None
        if descriptor is not None:
            for remove in self._loop.remove_reader, self._loop.remove_writer:
                with contextlib.suppress(OSError):  # it is closed already
                    remove(descriptor)

    def _is_stale(self) -> bool:
        """The descriptor is that of a device that has gone: ready for ever, or nobody's by now."""
        return self._port.state == "sought" or self._port.counters().back != self._backs

    def _look(self) -> None:
        """Something may have happened that no descriptor tells."""
        if self._lost:
            return
        if self._descriptor is not None and self._is_stale():
            self._unwatch()
        if self._port.state == "there" and self._descriptor is None:
            self._watch()  # for the first time, or because the device is back
            if self._buffer:
                self._send()
        self._read_ready()

    def _read_ready(self) -> None:
        if self._lost or not self._reading:
            return
        try:
            data = self._port.read(_HIGH_WATER, timeout=0)
        except Error as error:
            self._lose(error)
            return
        if data:
            self._protocol.data_received(data)  # type: ignore[attr-defined]
            if self._descriptor is None:
                self._loop.call_soon(self._look)  # there may be more, of which no message tells again
        elif self._port.state == "sought":
            self._unwatch()

    def pause_reading(self) -> None:
        self._reading = False
        if self._descriptor is not None:
            with contextlib.suppress(OSError):
                self._loop.remove_reader(self._descriptor)

    def resume_reading(self) -> None:
        if self._closing or self._reading:
            return
        self._reading = True
        if self._descriptor is not None:
            self._attend(self._loop.add_reader, self._read_ready)
        self._loop.call_soon(self._look)

    def is_reading(self) -> bool:
        return self._reading and not self._closing

    # ---- Writing ----

    def write(self, data: bytes | bytearray | memoryview) -> None:
        if self._closing or self._lost:
            return
        self._buffer += data
        if len(self._buffer) == len(data):
            self._send()
        if len(self._buffer) > self._high and not self._full:
            self._full = True
            self._protocol.pause_writing()

    def _send(self) -> None:
        if self._lost:
            return
        try:
            count = self._port.write(bytes(self._buffer), timeout=0) if self._buffer else 0
        except Error as error:
            self._lose(error)
            return
        del self._buffer[:count]
        if self._full and len(self._buffer) <= self._low:
            self._full = False
            self._protocol.resume_writing()
        if self._buffer:
            self._send_later()
        elif self._descriptor is not None:
            with contextlib.suppress(OSError):
                self._loop.remove_writer(self._descriptor)

    def _send_later(self) -> None:
        if self._descriptor is not None and self._is_stale():
            self._unwatch()
        if self._descriptor is not None:
            self._attend(self._loop.add_writer, self._send)
        elif self._port.state == "there":
            self._loop.call_later(_LOOK_AGAIN, self._send)
        # else it is told of the device that is back

    def set_write_buffer_limits(self, high: int | None = None, low: int | None = None) -> None:
        self._high = _HIGH_WATER if high is None else high
        self._low = self._high // 4 if low is None else low

    def get_write_buffer_size(self) -> int:
        return len(self._buffer)

    def get_write_buffer_limits(self) -> tuple[int, int]:
        return self._low, self._high

    def can_write_eof(self) -> bool:
        return False

    # ---- The end ----

    def is_closing(self) -> bool:
        return self._closing or self._lost

    def close(self) -> None:
        """Closes the port when all has been sent, or when nothing of it has moved for five seconds; the loop goes on
        meanwhile."""
        if self._closing or self._lost:
            return
        self.pause_reading()
        self._closing = True
        self._end_when_sent(None, 0)

    def _end_when_sent(self, before: int | None, latest: float) -> None:
        if self._lost:
            return
        try:
            left = len(self._buffer) + self._port.out_waiting
        except Error:
            left = 0
        if before is None or left < before:
            latest = self._loop.time() + _STANDSTILL
        if left and self._loop.time() < latest:
            self._loop.call_later(_LOOK_AGAIN, self._end_when_sent, left, latest)
        else:
            self._lose(None)

    def abort(self) -> None:
        """Closes the port now; what was not sent is lost."""
        self._lose(None)

    def _lose(self, error: Exception | None) -> None:
        if self._lost:
            return
        self._lost = True
        self._unwatch()
        self._messages.remove(self._loop, self._look)
        self._buffer.clear()
        self._loop.call_soon(self._end, error)

    def _end(self, error: Exception | None) -> None:
        try:
            self._protocol.connection_lost(error)
        finally:
            self._port.close(0)

    def get_protocol(self) -> asyncio.BaseProtocol:
        return self._protocol

    def set_protocol(self, protocol: asyncio.BaseProtocol) -> None:
        self._protocol = protocol


async def connect_serial(
    protocol_factory: Callable[[], asyncio.BaseProtocol], path: str, *arguments: Any, **options: Any
) -> tuple[SerialTransport, asyncio.BaseProtocol]:
    """Opens a port, arguments as for Port, as the transport of a protocol."""
    if path.partition(":")[0] in _NETWORKS:  # the loop goes on while the far end is waited for
        port = await asyncio.to_thread(Port, path, *arguments, **options)
    else:
        port = Port(path, *arguments, **options)
    protocol = protocol_factory()
    return SerialTransport(asyncio.get_running_loop(), protocol, port), protocol


async def open_serial(
    path: str, *arguments: Any, limit: int = 65536, **options: Any
) -> tuple[asyncio.StreamReader, asyncio.StreamWriter]:
    """Opens a port, arguments as for Port, and gives reader and writer. When the device goes, reads raise DeviceGone;
    with keep=True they wait until it is back, and what is written meanwhile is sent then."""
    loop = asyncio.get_running_loop()
    reader = asyncio.StreamReader(limit, loop)
    transport, protocol = await connect_serial(
        lambda: asyncio.StreamReaderProtocol(reader, loop=loop), path, *arguments, **options
    )
    return reader, asyncio.StreamWriter(transport, protocol, reader, loop)

"""A thread that reads a port and hands what comes to a protocol, in the manner of asyncio's."""

from __future__ import annotations

import threading

from .. import serialutil

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Callable
    from typing import Any

__all__ = ["FramedPacket", "LineReader", "Packetizer", "Protocol", "ReaderThread"]


class Protocol:
    """What a reader thread calls. All of it may be left as it is."""

    def connection_made(self, transport: ReaderThread) -> None:
        """The thread has started."""

    def data_received(self, data: bytes) -> None:
        """Bytes have come."""

    def connection_lost(self, exc: BaseException | None) -> None:
        """The port was closed, or reading has ended by an exception."""
        if isinstance(exc, Exception):
            raise exc


class Packetizer(Protocol):
    """Packets that end with TERMINATOR."""

    TERMINATOR = b"\0"

    def __init__(self) -> None:
        self.buffer = bytearray()
        self.transport: ReaderThread | None = None

    def connection_made(self, transport: ReaderThread) -> None:
        self.transport = transport

    def connection_lost(self, exc: BaseException | None) -> None:
        self.transport = None
        super().connection_lost(exc)

    def data_received(self, data: bytes) -> None:
        self.buffer += data
        while self.TERMINATOR in self.buffer:
            packet, self.buffer = self.buffer.split(self.TERMINATOR, 1)
            self.handle_packet(packet)

    def handle_packet(self, packet: Any) -> None:
        raise NotImplementedError("please implement functionality in handle_packet")


class FramedPacket(Protocol):
    """Packets between START and STOP."""

    START = b"("
    STOP = b")"

    def __init__(self) -> None:
        self.packet = bytearray()
        self.in_packet = False
        self.transport: ReaderThread | None = None

    def connection_made(self, transport: ReaderThread) -> None:
        self.transport = transport

    def connection_lost(self, exc: BaseException | None) -> None:
        self.transport = None
        self.in_packet = False
        self.packet.clear()
        super().connection_lost(exc)

    def data_received(self, data: bytes) -> None:
        for byte in serialutil.iterbytes(data):
            if byte == self.START:
                self.in_packet = True
            elif byte == self.STOP:
                self.in_packet = False
                packet = bytes(self.packet)
                self.packet.clear()
                self.handle_packet(packet)
            elif self.in_packet:
                self.packet += byte
            else:
                self.handle_out_of_packet_data(byte)

    def handle_packet(self, packet: bytes) -> None:
        raise NotImplementedError("please implement functionality in handle_packet")

    def handle_out_of_packet_data(self, data: bytes) -> None:
        """A byte between two packets."""


class LineReader(Packetizer):
    """Lines of text."""

    TERMINATOR = b"\r\n"
    ENCODING = "utf-8"
    UNICODE_HANDLING = "replace"

    def handle_packet(self, packet: Any) -> None:
        self.handle_line(packet.decode(self.ENCODING, self.UNICODE_HANDLING))

    def handle_line(self, line: str) -> None:
        raise NotImplementedError("please implement functionality in handle_line")

    def write_line(self, text: str) -> None:
        if self.transport is None:
            raise serialutil.PortNotOpenError
        self.transport.write(text.encode(self.ENCODING, self.UNICODE_HANDLING) + self.TERMINATOR)


class ReaderThread(threading.Thread):
    """Reads a port until it is stopped, closed or fails. As a context manager it gives the protocol."""

    def __init__(self, serial_instance: Any, protocol_factory: Callable[[], Any]) -> None:
        super().__init__(daemon=True)
        self.serial = serial_instance
        self.protocol_factory = protocol_factory
        self.alive = True
        self.protocol: Any = None
        self._lock = threading.Lock()
        self._connection_made = threading.Event()

    def stop(self) -> None:
        """Ends the thread; the port stays open."""
        self.alive = False
        if hasattr(self.serial, "cancel_read"):
            self.serial.cancel_read()
        if threading.current_thread() is not self:
            self.join(2)

    def run(self) -> None:
        if not hasattr(self.serial, "cancel_read"):
            self.serial.timeout = 1
        self.protocol = self.protocol_factory()
        try:
            self.protocol.connection_made(self)
        except Exception as error:
            self.alive = False
            try:
                self.protocol.connection_lost(error)
            finally:
                self._connection_made.set()
            return
        self._connection_made.set()
        ended_by = self._read_on()
        self.alive = False
        self.protocol.connection_lost(ended_by)
        self.protocol = None

    def _read_on(self) -> Exception | None:
        while self.alive and self.serial.is_open:
            try:
                data = self.serial.read(self.serial.in_waiting or 1)
            except serialutil.SerialException as error:
                return error if self.serial.is_open else None
            if data:
                try:
                    self.protocol.data_received(data)
                except Exception as error:
                    return error
        return None

    def write(self, data: Any) -> int:
        """Writes from any thread, one call after the other."""
        with self._lock:
            count: int = self.serial.write(data)
            return count

    def close(self) -> None:
        """Ends the thread and closes the port."""
        with self._lock:
            self.stop()
            self.serial.close()

    def connect(self) -> tuple[ReaderThread, Any]:
        """Waits until the protocol is there: the thread and it."""
        if not self.alive:
            raise RuntimeError("already stopped")
        self._connection_made.wait()
        if not self.alive:
            raise RuntimeError("connection_lost already called")
        return self, self.protocol

    def __enter__(self) -> Any:
        self.start()
        return self.connect()[1]

    def __exit__(self, *exception: object) -> None:
        self.close()

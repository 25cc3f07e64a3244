"""asyncio: reader and writer on the loop's own watch."""

import asyncio
import contextlib
import itertools
import os
import threading

import pytest
from conftest import PATIENCE, FarEnd

import brisolt
from brisolt import aio


def run(work):
    return asyncio.run(asyncio.wait_for(work, PATIENCE))


def test_streams_both_ways_without_a_thread(far):
    async def work():
        threads = threading.active_count()
        reader, writer = await brisolt.open_serial(far.path, 115200)
        far.send(b"one\ntwo\n")
        assert await reader.readline() == b"one\n" and await reader.readline() == b"two\n"
        far.echo()
        block = bytes(range(256)) * 4000
        writer.write(block)
        echoed, _ = await asyncio.gather(reader.readexactly(len(block)), writer.drain())
        assert echoed == block and threading.active_count() == threads
        writer.close()
        await writer.wait_closed()
        assert writer.get_extra_info("port").closed

    run(work())


@pytest.mark.parametrize("patient", [False, True])
def test_a_far_end_that_does_not_read_holds_the_writer_off(far, patient, monkeypatch):
    monkeypatch.setattr(aio, "_STANDSTILL", 0.5)

    async def work():
        _, writer = await brisolt.open_serial(far.path)
        far.deaf()
        with pytest.raises(asyncio.TimeoutError):
            for _ in range(100):
                writer.write(bytes(10000))
                await asyncio.wait_for(writer.drain(), 0.3)
        if patient:
            writer.close()  # gives it up when nothing moves
        else:
            writer.transport.abort()
        await writer.wait_closed()

    run(work())


def test_a_device_that_goes_ends_the_reader(far):
    async def work():
        reader, writer = await brisolt.open_serial(far.path)
        far.send(b"last")
        assert await reader.readexactly(4) == b"last"
        far.hang()
        with pytest.raises(brisolt.DeviceGone):
            await reader.read()
        writer.close()

    run(work())


def test_a_kept_device_that_comes_back(far, tmp_path):
    """Reader and writer stay: what had come is read, what is written meanwhile waits, and both go on on the new
    device."""
    socket, plug = tmp_path / "socket", tmp_path / "plug"

    async def state(port, wanted):
        while port.state != wanted:
            await asyncio.sleep(0.01)

    async def work(*ends):
        socket.symlink_to(far.path)
        reader, writer = await brisolt.open_serial(str(socket), keep=True)
        port = writer.get_extra_info("port")
        far.send(b"before")
        assert await reader.readexactly(6) == b"before"
        for gone, back in itertools.pairwise(ends):
            if gone is not far:  # a reader that has enough keeps nothing from the writer
                writer.transport.pause_reading()
            socket.unlink()
            gone.hang()
            await state(port, "sought")
            read = asyncio.ensure_future(reader.readexactly(5))
            writer.write(b"meanwhile" * 20000)  # more than the port's ring holds
            await asyncio.sleep(0.1)
            assert not read.done()
            plug.symlink_to(back.path)
            os.replace(plug, socket)
            await state(port, "there")
            assert await asyncio.to_thread(back.take, 180000) == b"meanwhile" * 20000
            back.send(b"after")
            writer.transport.resume_reading()
            assert await read == b"after"
        assert port.counters().back == 2
        writer.close()
        await writer.wait_closed()

    with contextlib.closing(FarEnd()) as second, contextlib.closing(FarEnd()) as third:
        run(work(far, second, third))


def test_a_line_over_a_network():
    """The far end, in the same loop, gets its turn while the line is opened."""

    async def work():
        async def serve(reader, writer):
            while data := await reader.read(1000):
                writer.write(b"\xff\xfc\x2c\xff\xfe\x2c" if data[0] == 0xFF else data)  # it has no such option
            writer.close()

        server = await asyncio.start_server(serve, "127.0.0.1", 0)
        number = server.sockets[0].getsockname()[1]
        reader, writer = await brisolt.open_serial(f"tcp:127.0.0.1:{number}")
        writer.write(b"over there\n")
        assert await reader.readline() == b"over there\n"
        writer.close()
        await writer.wait_closed()
        with pytest.raises(brisolt.Error, match="option"):
            await brisolt.open_serial(f"rfc2217:127.0.0.1:{number}?answer=60000")
        server.close()

    run(work())


def test_ports_without_a_descriptor():
    """Two ends of a null modem in one loop, told by the library's messages."""

    async def work():
        ends = [await brisolt.open_serial("null-modem:asyncio", flow="rts") for _ in range(2)]
        block = b"x" * 200000
        ends[0][1].write(block)
        assert await ends[1][0].readexactly(len(block)) == block
        ends[1][1].write(b"back\n")
        assert await ends[0][0].readline() == b"back\n"
        for _, writer in ends:
            writer.close()
            await writer.wait_closed()

    run(work())

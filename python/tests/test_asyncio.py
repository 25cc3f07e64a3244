"""asyncio: reader and writer on the loop's own watch."""

import asyncio
import threading

import pytest
from conftest import PATIENCE

import brisolt


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


def test_a_far_end_that_does_not_read_holds_the_writer_off(far):
    async def work():
        _, writer = await brisolt.open_serial(far.path)
        far.deaf()
        with pytest.raises(asyncio.TimeoutError):
            for _ in range(100):
                writer.write(bytes(10000))
                await asyncio.wait_for(writer.drain(), 0.3)
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

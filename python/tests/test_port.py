"""brisolt.Port against a far end in another process, and against itself over a null modem."""

import os
import signal
import subprocess
import sys
import time

import pytest
from conftest import PATIENCE, SOURCE, aside, readable, until

import brisolt
from brisolt import Event, Port


@pytest.fixture
def pair(request):
    name = f"null-modem:{request.node.name}"
    # With flow control: without it a null modem drops what finds the other side's queue full.
    with Port(name, flow="rts", timeout=PATIENCE) as one, Port(name, flow="rts", timeout=PATIENCE) as two:
        yield one, two


def test_reads_and_writes(far):
    with Port(far.path, 115200, timeout=PATIENCE) as port:
        assert port.write(b"abc") == 3 and far.take(3) == b"abc"
        assert port.write(memoryview(b"de")) == 2 and far.take(2) == b"de"
        far.send(b"one\ntwo\nrest")
        assert port.readline() == b"one\n"
        assert until(lambda: port.in_waiting >= 8) and port.peek(4) == b"two\n"
        assert port.read_until(b"wo\n") == b"two\n" and port.read_exactly(4) == b"rest"
        far.send(b"1\n2\n")
        until(lambda: port.in_waiting == 4)
        port.timeout = 0.1
        assert list(port) == [b"1\n", b"2\n"]
        assert port.read(timeout=0) == b"" and port.read(0) == b""
        far.send(b"abc")
        assert port.readinto(buffer := bytearray(1)) == 1 and buffer == b"a"
        with pytest.raises(brisolt.TimeOver) as caught:
            port.read_exactly(5, timeout=0.2)
        assert caught.value.partial == b"bc" and isinstance(caught.value, TimeoutError)
        port.drain()
        assert (port.baudrate, port.framing, port.state, port.closed) == (115200, "8N1", "there", False)
        port.set_line(9600, "8N2")
        assert (port.baudrate, port.framing) == (9600, "8N2")
    assert port.closed and port.state == "closed"
    port.close()


def test_refusals(far):
    """Each failure has its class, its code and a text that names what was wrong."""

    def refuses(kind, named, call):
        with pytest.raises(kind, match=named) as caught:
            call()
        return caught.value

    refuses(brisolt.Error, "/dev/nonesuch", lambda: Port("/dev/nonesuch"))
    refuses(brisolt.Error, "keep", lambda: Port(far.path, keep="perhaps"))
    refuses(brisolt.Error, "wrong", lambda: Port(far.path, wrong=True))
    refuses(ValueError, "rts, xon", lambda: Port(far.path, flow="cts"))
    refuses(ValueError, "", lambda: Port(far.path, timeout=-1))
    refuses(ValueError, str(10**12), lambda: Port(far.path, 10**12))
    refuses(ValueError, "", lambda: Port("/dev/x", dtr="off&keep=yes"))
    with Port(far.path) as port:
        refuses(brisolt.Unable, port.path, port.lines)
        refuses(brisolt.Error, "8N1", lambda: port.set_line(framing="8X1"))
        refuses(TypeError, "", lambda: port.write("text"))
        refuses(ValueError, "", lambda: port.wait_event(0))
        assert port.read(10**12, timeout=0) == b""
        assert refuses(brisolt.Error, str(os.getpid()), lambda: Port(far.path)).code == -25
        far.hang()
        refuses(brisolt.DeviceGone, ".", lambda: port.read(timeout=PATIENCE))
        assert until(lambda: port.state == "gone")
    refuses(brisolt.PortClosed, "", port.read)
    refuses(brisolt.PortClosed, "", lambda: port.in_waiting)


def test_lines_events_and_counters(pair):
    one, two = pair
    one.set_line(flow="none")
    two.set_line(flow="none")
    one.set_rts(False)
    until(lambda: not two.lines().cts)
    since = two.counters()
    one.set_rts(True)
    one.set_dtr(False)
    assert two.wait_event(Event.CTS, PATIENCE, since) == Event.CTS
    assert two.wait_event(Event.DSR | Event.CARRIER, PATIENCE, since)
    assert two.wait_event(Event.BREAK, 0.05) == Event(0)
    lines = two.lines()
    assert (lines.cts, lines.dsr, lines.carrier, lines.dtr, lines.rts) == (True, False, False, True, True)
    one.write(b"12345")
    assert two.read_exactly(5) == b"12345"
    assert two.counters().received == 5 and one.counters().sent == 5
    one.send_break(0.05)
    assert two.wait_event(Event.BREAK, PATIENCE, since) == Event.BREAK


def test_dialogues(pair):
    one, two = pair
    two.write(b"noise login: more")
    assert one.expect(b"word", "login:", answers=["", "me|"], timeout=PATIENCE) == 1
    assert two.read_exactly(3) == b"me\r" and one.read_exactly(5) == b" more"
    two.write(b"something else")
    with pytest.raises(brisolt.TimeOver) as caught:
        one.expect("login:", timeout=1)
    assert caught.value.partial == b"something else"


def test_text_files(pair, tmp_path):
    one, two = pair
    text, seen = b"line %d\r\n" * 3000 % tuple(range(3000)), []
    (tmp_path / "sent").write_bytes(text)
    told = []
    receiver = aside(lambda: two.receive_text(tmp_path / "received", progress=seen.append))
    assert one.send_text(tmp_path / "sent", progress=lambda *numbers: told.append(numbers)) >= len(text)
    receiver.join(PATIENCE)
    assert not receiver.is_alive() and (tmp_path / "received").read_bytes() == text
    assert told[-1][1] == len(text) and seen == sorted(seen) and seen[-1] == len(text)
    with pytest.raises(brisolt.Error, match="nowhere"):
        one.send_text(tmp_path / "nowhere")


def test_a_modem_is_set_up_and_dials(tmp_path, started):
    modem = os.environ.get("BRISOLT_MODEM", "")
    if not os.path.exists(modem):
        pytest.skip("the modem simulator is not built")
    link, database = tmp_path / "modem", SOURCE / "share/modems.txt"
    started(modem, "--link", link, "--number", "100")
    until(link.exists)
    with Port(str(link), 9600) as port:
        name = database.read_text().split("!")[0]
        port.set_modem(name, str(database), compression=False, flow="none", error_control="off")
        with pytest.raises(brisolt.TimeOver):
            port.dial("200", timeout=1)  # a pseudo terminal shows no carrier
        with pytest.raises(brisolt.Error, match="no such modem"):
            port.set_modem("no such modem", str(database))


INTERRUPTED = """
import sys, threading, time, os, signal
import brisolt, brisolt.serial
path, kind, received = sys.argv[1:]
port = brisolt.Port(path) if kind != "serial" else brisolt.serial.Serial(path)
ready = threading.Timer(0.3, lambda: print("waiting", flush=True))
ready.start()
waits = {
    "read": lambda: port.read(), "serial": lambda: port.read(1), "lines": lambda: list(port),
    "write": lambda: port.write(bytes(1000000)), "event": lambda: port.wait_event(brisolt.Event.GONE),
    "expect": lambda: port.expect("never", timeout=60),
    "receive": lambda: port.receive_text(received, timeout=60),
    "devices": lambda: list(brisolt.watch_devices()),
}
try:
    waits[kind]()
except KeyboardInterrupt:
    print("interrupted", flush=True)
"""


@pytest.mark.parametrize("kind", ["read", "serial", "lines", "write", "event", "expect", "receive", "devices"])
def test_ctrl_c_ends_a_wait_at_once(far, started, tmp_path, kind):
    far.deaf()
    received = tmp_path / "received"
    process = started(sys.executable, "-c", INTERRUPTED, far.path, kind, received, stdout=subprocess.PIPE)
    assert process.stdout.readline() == b"waiting\n"
    time.sleep(0.7)  # it is about to wait: a signal just before that would end nothing
    process.send_signal(signal.SIGINT)
    start = time.monotonic()
    assert readable(process.stdout), "Ctrl-C has not ended the wait"
    assert process.stdout.readline() == b"interrupted\n" and time.monotonic() - start < 5


EARLY = """
import ctypes, functools, operator, sys
import brisolt.serial
port = brisolt.serial.Serial(sys.argv[1])
interrupt = functools.partial(getattr(ctypes.PyDLL(None), "raise"), 2)
waits = {"read": functools.partial(port.read, 1), "write": functools.partial(port.write, bytes(1000000))}
try:
    list(map(operator.call, [interrupt, waits[sys.argv[2]]]))
except KeyboardInterrupt:
    print("interrupted", flush=True)
"""


@pytest.mark.parametrize("kind", ["read", "write"])
def test_a_signal_just_before_a_wait_ends_it(far, started, kind):
    """Python has no chance to look between the signal and the wait: all between them is in C."""
    far.deaf()
    process = started(sys.executable, "-c", EARLY, far.path, kind, stdout=subprocess.PIPE)
    assert readable(process.stdout) and process.stdout.readline() == b"interrupted\n"


WAITS = (  # and what a cancel makes of each
    (lambda port: port.read(), b""),
    (lambda port: port.readline(), b""),
    (lambda port: port.read_exactly(2), brisolt.TimeOver),
    (lambda port: port.wait_event(Event.GONE), brisolt.Cancelled),
    (lambda port: port.expect("never", timeout=None), brisolt.Cancelled),
    (lambda port: 0 < port.write(bytes(1000000)) < 1000000, True),
)


def outcome(call, port):
    try:
        return call(port)
    except brisolt.Error as error:
        return type(error)


def test_closes_and_cancels_end_the_waits_of_other_threads(far):
    """A close at once, a cancel those that run, in whichever piece of its time the wait is; the port goes on."""
    far.deaf()
    for call, by_cancel in WAITS:
        for end in Port.cancel, lambda port: port.close(0):
            port, ends = Port(far.path), []
            waiting = aside(lambda: ends.append(outcome(call, port)))
            time.sleep(0.05)
            until(lambda: end(port) or not waiting.is_alive())
            assert ends == [by_cancel if end is Port.cancel else brisolt.PortClosed]
            if end is Port.cancel:
                far.send(b"on")
                assert port.read_exactly(2) == b"on"
            port.close(0)


@pytest.mark.parametrize("end", [Port.cancel, Port.close])
def test_a_signals_handler_ends_the_wait_below_it(far, end):
    for call, by_cancel in (WAITS[0], WAITS[3]):
        port, took = Port(far.path), []

        def handle(*_):
            assert len(took) < 50, "the wait goes on"
            start = time.monotonic()
            took.append(0.0)
            end(port)
            took[-1] = time.monotonic() - start

        before = signal.signal(signal.SIGALRM, handle)
        signal.setitimer(signal.ITIMER_REAL, 0.3, 0.3)  # again, should the first come before the wait has begun
        result = outcome(call, port)
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
        assert result == (by_cancel if end is Port.cancel else brisolt.PortClosed) and max(took) < 1.5
        port.close()


def test_devices_are_told():
    found = brisolt.devices()
    assert [device.path for device in found] == sorted(device.path for device in found)
    assert all(device.path.startswith("/dev/") and device.vendor_id != -1 for device in found)
    assert list(brisolt.watch_devices(timeout=0.05)) == []


def test_importing_loads_no_library():
    program = (
        "import sys, brisolt, brisolt.serial; print([m for m in sys.modules if m.endswith(('_native', 'typing'))])"
    )
    assert subprocess.check_output([sys.executable, "-c", program]) == b"[]\n"

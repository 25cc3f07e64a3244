"""serial_for_url and what goes with it: the kinds of URL, threads that read, lists of ports."""

import importlib
import importlib.util
import os
import queue
import socket
import subprocess
import sys
import threading
import types

import pytest
from conftest import PATIENCE, aside, until

import brisolt.serial as serial
from brisolt.serial import rfc2217, rs485, threaded
from brisolt.serial.tools import hexlify_codec, list_ports, list_ports_common


def test_loop():
    with serial.serial_for_url("loop://", timeout=0.2, write_timeout=0.2) as port:
        assert port.write(b"abc\ndef") == 7 and port.in_waiting == 7
        assert port.readline() == b"abc\n" and port.read(5) == b"def" and port.read() == b""
        port.rts, port.dtr = False, True
        assert (port.cts, port.dsr, port.cd, port.ri) == (False, True, True, False)
        with pytest.raises(serial.SerialTimeoutException):
            port.write(bytes(5000))
        port.reset_input_buffer()
        port.baudrate, port.timeout, port.write_timeout = 115200, PATIENCE, PATIENCE
        aside(lambda: port.write(bytes(10000)))
        assert len(port.read(10000)) == 10000
        threading.Timer(0.1, port.cancel_read).start()
        assert port.read(1) == b""
    with pytest.raises(serial.PortNotOpenError):
        port.read()


def test_spy_shows_the_bytes_as_they_are(far, tmp_path):
    log = tmp_path / "log"
    with serial.serial_for_url(f"spy://{far.path}?file={log}&raw&color", timeout=PATIENCE) as port:
        port.write(b"\0\xff")
        far.send(b"ok\n")
        assert port.readline() == b"ok\n"
    assert log.read_bytes() == b"\x1b[31m\0\xff" + b"".join(b"\x1b[32m%c" % byte for byte in b"ok\n")


def test_alt(far):
    with serial.serial_for_url(f"alt://{far.path}?class=PosixPollSerial", 9600) as port:
        assert type(port) is serial.PosixPollSerial and port.baudrate == 9600
    assert not serial.serial_for_url(far.path, do_not_open=True).is_open
    with pytest.raises(ValueError):
        serial.serial_for_url(f"alt://{far.path}?class=XON")
    with pytest.raises(serial.SerialException):
        serial.serial_for_url("loop://?wrong=1")


class EchoingAdapter:
    """What hidapi's module gives of an adapter whose two lines are joined."""

    def __init__(self):
        self.reports, self.features, self.closed = queue.Queue(), [], 0

    def open_path(self, path):
        if path != b"/dev/hidraw9":
            raise OSError("open failed")

    def set_nonblocking(self, on):
        self.patient = not on

    def send_feature_report(self, report):
        self.features.append(report.hex())
        return -1 if report[0] == 0x50 and report[1:5] == bytes(4) else len(report)

    def write(self, report):
        self.reports.put(list(report))
        return len(report)

    def read(self, length, milliseconds=0):
        try:
            return self.reports.get(self.patient or milliseconds > 0, milliseconds / 1000 or None)
        except queue.Empty:
            return []

    def close(self):
        self.closed += 1


def test_cp2110(monkeypatch):
    monkeypatch.setitem(sys.modules, "hid", None)
    with pytest.raises(ValueError, match="protocol 'cp2110' not known"):  # as with pyserial where hidapi is missing
        serial.serial_for_url("cp2110:///dev/hidraw9")
    adapter = EchoingAdapter()
    monkeypatch.setitem(sys.modules, "hid", types.SimpleNamespace(device=lambda: adapter))
    with serial.serial_for_url("cp2110:///dev/hidraw9", 115200, parity="E", stopbits=2, timeout=PATIENCE) as port:
        assert adapter.features == ["500001c20002000301", "4101", "5200"]
        block = bytes(range(256))
        assert port.write(block) == 256 and port.read(256) == block
        assert port.write([1, 2, 3]) == 3 and port.in_waiting == 3 and port.read(2) == b"\1\2"
        port.reset_input_buffer()
        assert port.in_waiting == 0 and adapter.features[-1] == "4302"
        threading.Timer(0.1, port.cancel_read).start()
        assert port.read() == b""
        with pytest.raises(serial.SerialException, match="0x50"):
            port.baudrate = 0
        assert port.baudrate == 115200
    with pytest.raises(serial.PortNotOpenError):
        port.read()
    assert adapter.closed == 1
    for url in "cp2110:///dev/hidraw8", "cp2110://":
        with pytest.raises(serial.SerialException):
            serial.serial_for_url(url)


def test_a_package_of_handlers(tmp_path, monkeypatch):
    (tmp_path / "own_handlers").mkdir()
    (tmp_path / "own_handlers/__init__.py").write_text("")
    (tmp_path / "own_handlers/protocol_own.py").write_text(
        "import brisolt.serial\n"
        "class Serial(brisolt.serial.SerialBase):\n"
        "    def open(self):\n        self.is_open = True\n"
        "    def close(self):\n        self.is_open = False\n"
        "    def read(self, size=1):\n        return b'\\n' * size\n"
    )
    monkeypatch.syspath_prepend(tmp_path)
    monkeypatch.setattr(serial, "protocol_handler_packages", [*serial.protocol_handler_packages, "own_handlers"])
    port = serial.serial_for_url("own://x")
    assert port.is_open and port.readline() == b"\n" and port.read_until(b"\n\n") == b"\n\n"


def test_socket():
    with socket.create_server(("127.0.0.1", 0)) as server:
        number = server.getsockname()[1]
        with serial.serial_for_url(f"socket://127.0.0.1:{number}", timeout=PATIENCE) as port:
            peer, _ = server.accept()
            port.rts = port.dtr = False
            port.baudrate = 300
            port.write(b"over there\n")
            peer.sendall(peer.recv(1000))
            assert port.readline() == b"over there\n"
            assert (port.cts, port.dsr, port.cd, port.ri) == (True, True, True, False)
            peer.close()


EXAMPLE = "/usr/share/doc/python3-serial/examples/rfc2217_server.py"


@pytest.fixture
def redirector(request, started):
    """pyserial's example of a server, on pyserial or unchanged on brisolt; the URL of what it serves."""
    if importlib.util.find_spec("serial") is None or not os.path.exists(EXAMPLE):
        pytest.skip(f"{EXAMPLE} is not there (Debian: python3-serial)")
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        number = free.getsockname()[1]
    compat = ["-m", "brisolt.compat"] if request.param == "brisolt" else []
    command = sys.executable, *compat, EXAMPLE, "loop://", "-p", number
    server = started(*command, stderr=subprocess.PIPE, text=True)
    while "TCP/IP port" not in server.stderr.readline():
        assert server.poll() is None
    return f"rfc2217://127.0.0.1:{number}?timeout={PATIENCE}"


@pytest.mark.parametrize(
    "redirector, client", [("serial", "brisolt.serial"), ("brisolt", "serial"), ("brisolt", "brisolt.serial")],
    indirect=["redirector"],
)  # fmt: skip
def test_rfc2217(redirector, client):
    """Both ends with pyserial's and with one another."""
    with importlib.import_module(client).serial_for_url(redirector, 115200, timeout=PATIENCE) as port:
        block = bytes(range(256)) * 8
        port.write(block)
        assert port.read(len(block)) == block
        for name, value in (
            ("baudrate", 9600), ("bytesize", 7), ("parity", "E"), ("stopbits", 1.5), ("xonxoff", True),
            ("xonxoff", False), ("rtscts", True), ("rtscts", False),
        ):  # fmt: skip
            setattr(port, name, value)
            assert getattr(port, name) == value
        with pytest.raises(ValueError, match="4294967294|baudrate"):
            port.baudrate = 2**32 - 2
        until(lambda: port.cts and port.dsr and port.cd and not port.ri)
        port.rts = False
        until(lambda: not port.cts)
        port.dtr = False
        until(lambda: not port.dsr)
        port.send_break(0.01)
        port.write(b"xyz")
        until(lambda: port.in_waiting == 3)
        port.reset_input_buffer()
        assert port.in_waiting == 0


def com_port(*codes):
    return b"\xff\xfa\x2c" + bytes(codes).replace(b"\xff", b"\xff\xff") + b"\xff\xf0"


def test_a_redirector_answers_each_request_with_what_is():
    """In whatever pieces it comes; what the port refuses or nobody knows changes nothing."""
    port = serial.serial_for_url("loop://", 300)
    sent = []
    manager = rfc2217.PortManager(port, type("Client", (), {"write": staticmethod(sent.append)}))
    assert b"\xff\xfb\x2c" in sent and list(manager.filter(b"\xff\xfd\x2c")) == []
    assert sent[-1] == com_port(107, 0xBB)  # all that is on has changed since nobody knew
    for request, answer in (
        ((1, 0, 0, 0, 0), (101, 0, 0, 1, 44)), ((1, 0, 0, 255, 255), (101, 0, 0, 255, 255)),
        ((1, 0, 0), (101, 0, 0, 255, 255)), ((2, 9), (102, 8)), ((2, 7), (102, 7)), ((3, 77), (103, 1)),
        ((3, 3), (103, 3)), ((4, 3), (104, 3)), ((4, 0), (104, 3)), ((5, 0), (105, 1)), ((5, 3), (105, 3)),
        ((5, 13), (105, 16)), ((5, 2), (105, 2)), ((5, 17), (105, 2)), ((5, 1), (105, 1)), ((5, 7), (105, 8)),
        ((5, 9), (105, 9)), ((5, 7), (105, 9)), ((5, 10), (105, 11)), ((5, 4), (105, 6)), ((5,), (105, 1)),
        ((7,), (107, 0x90 | 0x02)), ((6,), (106, 0x60)), ((11, 0x10), (111, 0x10)), ((7,), (107, 0x10)),
        ((10, 4), (110, 4)), ((12, 3), (112, 3)), ((12, 9), None), ((99,), None), ((), None),
        ((1,) * 5000, (101, 1, 1, 1, 1)),
    ):  # fmt: skip
        sent.clear()
        said = com_port(*request)
        assert [byte for at in range(len(said)) for byte in manager.filter(said[at : at + 1])] == []
        assert sent == ([] if answer is None else [com_port(*answer)]), request
    sent.clear()
    mixed = b"a\xff\xffb\xff\xf0\xff\xf1\xff\xfd\x18\xff\xfb\x63c"
    assert b"".join(manager.filter(mixed)) == b"a\xffbc" and sent == [b"\xff\xfc\x18", b"\xff\xfe\x63"]
    assert b"".join(manager.escape(b"a\xffb")) == b"a\xff\xffb"


def test_a_thread_reads(far):
    told = queue.Queue()

    class Lines(threaded.LineReader):
        def handle_line(self, line):
            told.put(line)

        def connection_lost(self, exc):
            told.put(exc)

    port = serial.Serial(far.path)
    with threaded.ReaderThread(port, Lines) as protocol:
        protocol.write_line("hello")
        assert far.take(7) == b"hello\r\n"
        far.send(b"one\r\ntwo\r\nthr")
        assert [told.get(timeout=PATIENCE) for _ in range(2)] == ["one", "two"]
    assert told.get(timeout=PATIENCE) is None and not port.is_open


def test_packets():
    packets, between = [], []
    framed = threaded.FramedPacket()
    framed.handle_packet, framed.handle_out_of_packet_data = packets.append, between.append
    framed.data_received(b"x(ab)(c")
    framed.data_received(b"d)y")
    assert packets == [b"ab", b"cd"] and between == [b"x", b"y"]


def test_rs485_by_rts(far, monkeypatch):
    switched = []
    monkeypatch.setattr(rs485.RS485, "_update_rts_state", lambda port: switched.append(port.rts))
    with rs485.RS485(far.path, timeout=PATIENCE) as port:
        port.rs485_mode = rs485.RS485Settings(delay_before_tx=0.01, delay_before_rx=0.01)
        port.write(b"abc")
        assert far.take(3) == b"abc" and switched == [True, False]


def test_lists_of_ports():
    assert all(info.name == info.device.rsplit("/", 1)[1] for info in sorted(list_ports.comports()))
    record = list_ports_common.ListPortInfo("/dev/ttyUSB10")
    record.vid, record.pid = 0x403, 0x6001
    record.serial_number, record.location, record.product = "A1", "1-2", "Adapter"
    record.apply_usb_info()
    assert tuple(record) == ("/dev/ttyUSB10", "Adapter", "USB VID:PID=0403:6001 SER=A1 LOCATION=1-2")
    assert list_ports_common.ListPortInfo("/dev/ttyUSB9") < record


def test_hexlify():
    codec = hexlify_codec.getregentry()
    assert codec.encode("40 41 42") == (b"@AB", 8) and codec.decode(b"@ab") == ("40 61 62 ", 3)
    typed = codec.incrementalencoder()
    assert typed.encode("4") == b"" and typed.encode("0 41") == b"@A"
    with pytest.raises(UnicodeError):
        typed.encode("x")

"""serial_for_url and what goes with it: the kinds of URL, threads that read, lists of ports."""

import importlib.util
import re
import socket
import subprocess
import sys
import threading

import pytest
from conftest import PATIENCE

import brisolt.serial as serial
from brisolt.serial import rs485, threaded
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
        thread = threading.Thread(target=port.write, args=(bytes(10000),))
        thread.start()
        assert len(port.read(10000)) == 10000
        thread.join()
        threading.Timer(0.1, port.cancel_read).start()
        assert port.read(1) == b""
    with pytest.raises(serial.PortNotOpenError):
        port.read()


def test_spy_tells_all_that_goes_over_a_port(far, tmp_path):
    log = tmp_path / "log"
    with serial.serial_for_url(f"spy://{far.path}?file={log}", timeout=PATIENCE) as port:
        port.write(bytes(range(60, 80)))
        far.send(b"ok\n")
        assert port.readline() == b"ok\n"
        port.cancel_read()
    told = re.sub(r"^\d{6}\.\d{3} ", "", log.read_text(), flags=re.MULTILINE)
    assert "TX   0000  3C 3D 3E 3F 40 41 42 43  44 45 46 47 48 49 4A 4B  <=>?@ABC DEFGHIJK\n" in told
    assert "TX   0010  4C 4D 4E 4F" in told and "RX   0000  6F" in told and "Q-RX cancel_read\n" in told


def test_alt_and_unknown_urls(far):
    with serial.serial_for_url(f"alt://{far.path}?class=PosixPollSerial", 9600) as port:
        assert type(port) is serial.PosixPollSerial and port.baudrate == 9600
    assert not serial.serial_for_url(far.path, do_not_open=True).is_open
    for url in "nonesuch://x", f"alt://{far.path}?class=Nothing", f"alt://{far.path}?class=XON":
        with pytest.raises(ValueError):
            serial.serial_for_url(url)
    for url in (
        f"alt://{far.path}?wrong=1",
        "loop://?wrong=1",
        "spy:///dev/x?wrong=1",
        "socket://host",
        "hwgrep://^nothing$",
    ):
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


@pytest.fixture
def server():
    """A peer on the network that sends back what it gets."""
    listening = socket.create_server(("127.0.0.1", 0))

    def serve():
        try:
            peer, _ = listening.accept()
        except OSError:
            return  # nobody has come
        while data := peer.recv(1000):
            peer.sendall(data)
        peer.close()

    threading.Thread(target=serve, daemon=True).start()
    yield listening.getsockname()[1]
    listening.close()


def test_socket(server):
    try:
        port = serial.serial_for_url(f"socket://127.0.0.1:{server}", timeout=PATIENCE)
    except serial.SerialException as error:
        pytest.skip(f"the library opens no network lines: {error}")
    with port:
        port.rts = port.dtr = False
        port.baudrate = 300
        port.write(b"over there\n")
        assert port.readline() == b"over there\n" and (port.cts, port.dsr, port.cd, port.ri) == (
            True,
            True,
            True,
            False,
        )


SERVER = """
import socket, threading, serial, serial.rfc2217
listening = socket.create_server(("127.0.0.1", 0))
print(listening.getsockname()[1], flush=True)
port = serial.serial_for_url("loop://", timeout=1)
peer, _ = listening.accept()
class Answers:
    write = staticmethod(peer.sendall)
manager = serial.rfc2217.PortManager(port, Answers)
def send():
    while True:
        peer.sendall(b"".join(manager.escape(port.read(port.in_waiting or 1))))
threading.Thread(target=send, daemon=True).start()
while data := peer.recv(1024):
    port.write(b"".join(manager.filter(data)))
"""


def test_rfc2217_with_the_server_of_pyserial():
    if importlib.util.find_spec("serial") is None:
        pytest.skip("pyserial is not installed (Debian: python3-serial)")
    with subprocess.Popen([sys.executable, "-c", SERVER], stdout=subprocess.PIPE, text=True) as server:
        try:
            url = f"rfc2217://127.0.0.1:{server.stdout.readline().strip()}?timeout=10"
            try:
                port = serial.serial_for_url(url, 115200, timeout=PATIENCE)
            except serial.SerialException as error:
                pytest.skip(f"the library opens no network lines: {error}")
            with port:
                port.write(b"over there \xff\n")
                assert port.readline() == b"over there \xff\n"
                port.baudrate, port.rts = 9600, False
                assert port.baudrate == 9600 and port.in_waiting == 0
        finally:
            server.kill()


def test_a_thread_reads(far):
    class Lines(threaded.LineReader):
        def __init__(self):
            super().__init__()
            self.lines, self.lost, self.two = [], threading.Event(), threading.Event()

        def handle_line(self, line):
            self.lines.append(line)
            if len(self.lines) == 2:
                self.two.set()

        def connection_lost(self, exc):
            self.lost.set()

    port = serial.Serial(far.path)
    with threaded.ReaderThread(port, Lines) as protocol:
        protocol.write_line("hello")
        assert far.take(7) == b"hello\r\n"
        far.send(b"one\r\ntwo\r\nthr")
        assert protocol.two.wait(PATIENCE) and protocol.lines == ["one", "two"]
    assert protocol.lost.wait(PATIENCE) and not port.is_open


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
    ports = list_ports.comports()
    assert (
        [info.device for info in sorted(ports)]
        and all(info.name == info.device.rsplit("/", 1)[1] for info in ports)
        or ports == []
    )
    record = list_ports_common.ListPortInfo("/dev/ttyUSB10")
    record.vid, record.pid, record.serial_number, record.location, record.product = (
        0x403,
        0x6001,
        "A1",
        "1-2",
        "Adapter",
    )
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

"""brisolt.serial beside pyserial: one table of calls, made on both, answers compared. And what only ours promises."""

import contextlib
import gc
import importlib
import inspect
import os
import pkgutil
import re
import tempfile
import time

import pytest
from conftest import FarEnd, aside, readable, until

import brisolt.serial as ours

try:
    theirs = importlib.import_module("serial")
except ImportError:
    theirs = None


def arrived(port, count):
    until(lambda: port.in_waiting >= count)
    return port.in_waiting


def sent(far, port, data):
    """What the far end sends is there to be read."""
    far.send(data)
    return arrived(port, len(data))


CAUGHT = {"PortNotOpenError", "SerialTimeoutException", "SerialException", "OSError", "ValueError", "TypeError"}


def refused(call):
    """Which exception a call raises, by what programs catch."""
    try:
        return call()
    except Exception as error:
        kinds = (kind.__name__ for kind in type(error).__mro__)
        return [name for name in kinds if name in CAUGHT], getattr(error, "errno", None)


def changed(port, **settings):
    for name, value in settings.items():
        setattr(port, name, value)
    return port.get_settings()


def own_subclass(module, far):
    class Tracing(module.Serial):
        seen = b""

        def read(self, size=1):
            data = super().read(size)
            self.seen += data
            return data

    port = Tracing(far.path, timeout=10)
    far.send(b"one\ntwo\n")
    lines = port.readline(), port.read_until(b"o\n")
    port.close()
    return lines, port.seen


def spied(module, far, options):
    """What spy:// tells of a port, times aside."""
    with tempfile.NamedTemporaryFile("r") as log:
        with module.serial_for_url(f"spy://{far.path}?file={log.name}{options}", timeout=0.2) as port:
            port.write(bytes(range(60, 101)))
            sent(far, port, b"ok\n\xff")
            port.read(3), port.read(1), port.read(1)
            for name in "flush", "reset_input_buffer", "reset_output_buffer", "cancel_read", "cancel_write":
                getattr(port, name)()
            port.send_break(0.01)
            levels = port.rts, port.dtr, port.break_condition
        told = [re.sub(r"^(\x1b\[..m)?\d{6}\.\d{3}", r"\1", line) for line in log]
        return levels, [line for line in told if "in_waiting" not in line]


# Each is called with the module, an open port with a time-out, and the far end.
CALLS = {
    "read": lambda m, p, f: (sent(f, p, b"abcdef"), p.read(), p.read(2), p.read(size=3), p.in_waiting),
    "read none": lambda m, p, f: (changed(p, timeout=0) and p.read(5), p.read(0), p.read(-1), p.read_all()),
    "read what is there in time": lambda m, p, f: (sent(f, p, b"ab"), changed(p, timeout=0.1) and p.read(10)),
    "read_all": lambda m, p, f: (sent(f, p, b"abc"), p.read_all(), p.inWaiting()),
    "readline": lambda m, p, f: (f.send(b"one\ntwo\r\nthree"), p.readline(), p.readline(), p.readline(2), p.readline(3)),
    "readline in time": lambda m, p, f: (sent(f, p, b"part"), changed(p, timeout=0.1) and p.readline()),
    "readlines": lambda m, p, f: (sent(f, p, b"1\n2\n3"), changed(p, timeout=0.1) and p.readlines()),
    "iteration": lambda m, p, f: (sent(f, p, b"1\n2\n"), changed(p, timeout=0.1) and list(p)),
    "read_until": lambda m, p, f: (f.send(b"a>>b\nc0123"), p.read_until(b">>"), p.read_until(), p.read_until(size=2),
                                   p.read_until(expected=b"3", size=0)),
    "iread_until": lambda m, p, f: (sent(f, p, b"1;2;"), changed(p, timeout=0.1) and list(p.iread_until(b";"))),
    "readinto": lambda m, p, f: (sent(f, p, b"abc"), p.readinto(b := bytearray(3)), b),
    "many bytes": lambda m, p, f: (f.send(bytes(range(256)) * 40), p.read(10240) == bytes(range(256)) * 40),
    "byte by byte": lambda m, p, f: (sent(f, p, b"0123456789" * 9), [p.read() for _ in range(40)], p.in_waiting,
                                     p.read(50)),
    "write": lambda m, p, f: (p.write(b"abc"), p.write(bytearray(b"de")), p.write(memoryview(b"fg")), p.write([1, 2]),
                              p.write(b""), f.take(9)),
    "write wrongly": lambda m, p, f: [refused(lambda data=data: p.write(data)) for data in ("text", [300], None, 1.5)],
    "writelines": lambda m, p, f: (p.writelines([b"ab", b"c"]), f.take(3)),
    "write to one who does not read": lambda m, p, f: (f.deaf(), changed(p, write_timeout=0.2),
                                                       refused(lambda: p.write(b"x" * 300000))),
    "write without waiting": lambda m, p, f: (f.deaf(), changed(p, write_timeout=0),
                                              0 < p.write(b"x" * 300000) < 300000),
    "flush": lambda m, p, f: (p.write(b"x"), p.flush(), f.take(1), p.out_waiting),
    "drop input": lambda m, p, f: (sent(f, p, b"abc"), p.reset_input_buffer(), p.in_waiting, sent(f, p, b"d"),
                                   p.flushInput(), p.in_waiting),
    "drop output": lambda m, p, f: (p.reset_output_buffer(), p.flushOutput()),
    "settings": lambda m, p, f: changed(p, baudrate=57600, stopbits=2, timeout=3, write_timeout=4.5,
                                        inter_byte_timeout=0.1, rtscts=True, dsrdtr=None),
    "all rates": lambda m, p, f: [changed(p, baudrate=rate)["baudrate"] for rate in (*p.BAUDRATES, 12345, "300")],
    "hang up": lambda m, p, f: changed(p, baudrate=0),
    "both flow controls": lambda m, p, f: changed(p, rtscts=True, xonxoff=True),
    "bad settings": lambda m, p, f: [refused(lambda n=n, v=v: setattr(p, n, v)) for n, v in (
        ("baudrate", -1), ("baudrate", None), ("bytesize", 9), ("parity", "X"), ("parity", None), ("stopbits", 3),
        ("timeout", -1), ("timeout", "x"), ("write_timeout", -1), ("inter_byte_timeout", -0.1), ("port", 3))],
    "after bad settings": lambda m, p, f: (refused(lambda: setattr(p, "parity", "X")), p.get_settings()),
    "unknown argument": lambda m, p, f: refused(lambda: m.Serial(f.path, colour="red")),
    "old arguments": lambda m, p, f: m.Serial(None, writeTimeout=2, interCharTimeout=1).get_settings(),
    "apply settings": lambda m, p, f: (p.apply_settings({"baudrate": 300, "other": 1}), p.getSettingsDict()),
    "names": lambda m, p, f: (p.port == p.name == p.portstr == f.path, p.readable(), p.writable(), p.seekable(),
                              p.closed, isinstance(p, __import__("io").RawIOBase)),
    "lines of a pty": lambda m, p, f: [refused(lambda n=n: getattr(p, n)) for n in ("cts", "dsr", "ri", "cd")],
    "outputs of a pty": lambda m, p, f: (p.rts, p.dtr, refused(lambda: p.setRTS(False)), refused(lambda: p.setDTR(0))),
    "break": lambda m, p, f: (p.send_break(0.01), p.sendBreak(0.01), refused(lambda: setattr(p, "break_condition", 1))),
    "rs485 of a pty": lambda m, p, f: refused(lambda: setattr(
        p, "rs485_mode", importlib.import_module(m.__name__ + ".rs485").RS485Settings())),
    "low latency of a pty": lambda m, p, f: refused(lambda: p.set_low_latency_mode(True)),
    "exclusive": lambda m, p, f: (changed(p, exclusive=True) and refused(lambda: m.Serial(f.path, exclusive=True)),
                                  changed(p, exclusive=False) and m.Serial(f.path, exclusive=True).is_open),
    "shared": lambda m, p, f: m.Serial(f.path).is_open,
    "reopen": lambda m, p, f: (p.close(), p.close(), p.is_open, p.isOpen(), refused(p.read), refused(
        lambda: p.write(b"x")), p.open(), p.is_open, refused(p.open)),
    "another port": lambda m, p, f: (setattr(p, "port", f.path), p.is_open),
    "closed": lambda m, p, f: (p.close(), [refused(lambda n=n: getattr(p, n)()) for n in (
        "flush", "reset_input_buffer", "reset_output_buffer", "fileno", "send_break")], p.fd, p.cancel_read()),
    "not configured": lambda m, p, f: refused(m.Serial().open),
    "no such device": lambda m, p, f: refused(lambda: m.Serial("/dev/nonesuch")),
    "cancel before a read": lambda m, p, f: (p.cancel_read(), p.read(1), f.send(b"z"), p.read(1)),
    "with": lambda m, p, f: (p.close(), p.__enter__() is p, p.is_open, p.__exit__(None, None, None), p.is_open),
    "descriptor": lambda m, p, f: (p.fileno() == p.fd, f.send(b"xy"), readable(p), arrived(p, 2), os.read(p.fd, 1),
                                   p.read()),
    "gone": lambda m, p, f: (f.hang(), refused(lambda: p.read(1))),
    "a class of one's own": lambda m, p, f: own_subclass(m, f),
    "ports": lambda m, p, f: [tuple(info) for info in sorted(importlib.import_module(
        m.__name__ + ".tools.list_ports").comports(include_links=True))],
    "repr": lambda m, p, f: repr(p).replace(hex(id(p)), "ID").replace(f.path, "PATH"),
    "attributes": lambda m, p, f: {n for n in dir(theirs.Serial()) if n.strip("_") == n and n in dir(p)
                                   and not n.startswith("pipe_abort")},
    "spy": lambda m, p, f: spied(m, f, ""),
    "spy all": lambda m, p, f: spied(m, f, "&all&color"),
    "refused opens": lambda m, p, f: [refused(lambda u=u: m.serial_for_url(u)) for u in (
        "", "/dev/null", "/etc/passwd", "/tmp", "socket://localhost:1", "socket://localhost", "rfc2217://localhost:1",
        "hwgrep://^nothing$", "hwgrep://x&n=0", "spy:///dev/nonesuch", "spy://x?y", "alt:///dev/x?class=Nothing", "x://y",
        f"alt://{f.path}?wrong=1")],
    "to_bytes": lambda m, p, f: (m.to_bytes([1, 2]), m.to_bytes(memoryview(b"a")), list(m.iterbytes(b"abc")),
                                 refused(lambda: m.to_bytes("s"))),
    "exceptions": lambda m, p, f: (m.PortNotOpenError().args, issubclass(m.SerialTimeoutException, m.SerialException)),
    "Timeout": lambda m, p, f: [(t.is_infinite, t.is_non_blocking, t.expired(), t.time_left() and 1)
                                for t in map(m.serialutil.Timeout, (None, 0, 9))],
}  # fmt: skip


beside_theirs = pytest.mark.skipif(theirs is None, reason="pyserial is not installed (Debian: python3-serial)")


@beside_theirs
@pytest.mark.parametrize("call", CALLS.values(), ids=CALLS)
def test_answers_are_those_of_pyserial(call):
    answers = []
    for module in ours, theirs:
        far = FarEnd()
        try:
            with module.Serial(far.path, 115200, timeout=10) as port:
                answers.append(call(module, port, far))
        finally:
            far.close()
    assert answers[0] == answers[1]


# What pyserial's modules show and no program can want of them: its ways round other systems and an older Python, what
# its client of telnet is made of (the library has one of its own), and how its logging is set up.
INSIDE = {
    "ABC", "LOGGER_LEVELS", "POLL_TIMEOUT", "PlatformSpecific", "PlatformSpecificBase", "REALLY_INACTIVE",
    "TelnetOption", "TelnetSubnegotiation", "absolute_import", "basestring", "plat", "raw_input",
    "rfc2217_send_subnegotiation", "sixteen", "telnet_send_option", "unichr", "unicode",
}  # fmt: skip


def their_modules():
    for module in pkgutil.walk_packages(theirs.__path__, "serial."):
        if not module.name.endswith(("win32", "windows", "osx", "java", "cli", "cp2110", "__main__")):
            yield importlib.import_module(module.name)


def own_names(holder, module):
    """Names of a module or class with their values, but for those that come from elsewhere."""
    for name, value in vars(holder).items():
        home = getattr(value, "__module__", None) or module
        if name[0] != "_" and not inspect.ismodule(value) and home == module:
            yield name, value


def parameters(call):
    named = inspect.signature(call).parameters.values()
    return [parameter.name for parameter in named if parameter.kind is parameter.POSITIONAL_OR_KEYWORD]


@beside_theirs
def test_all_that_pyserial_shows_is_there():
    """Every name of every module, the members of its classes, the parameters of its calls and its constants."""
    differing = []

    def compare(holder, own_holder, module):
        for name, value in own_names(holder, module):
            own = getattr(own_holder, name, None)
            where = f"{holder.__name__}.{name}"
            if name in INSIDE:
                continue
            if own is None and value is not None:
                differing.append(where)
            elif inspect.isclass(value):
                compare(value, own, module)
            elif inspect.isfunction(value) and not set(parameters(value)) <= {"self", *parameters(own)}:
                differing.append(f"{where}{inspect.signature(value)}: {inspect.signature(own)}")
            elif isinstance(value, (int, float, bytes, str)) and value != own:
                differing.append(f"{where} = {value!r}: {own!r}")

    for module in [theirs, *their_modules()]:
        compare(module, importlib.import_module("brisolt." + module.__name__), module.__name__)
    assert differing == []


def test_waits_that_others_end(far):
    """A read that waits for ever ends with a cancel, and with the close of the port; so does a readline."""
    port = ours.Serial(far.path)

    def ended(call, end):
        results = []
        thread = aside(lambda: results.append(refused(call)))
        time.sleep(0.05)
        end()
        thread.join(10)
        assert not thread.is_alive()
        return results[0]

    for wait in lambda: port.read(5), port.readline:
        assert ended(wait, port.cancel_read) == b""
    far.deaf()
    assert ended(lambda: port.write(bytes(300000)), port.cancel_write) < 300000
    assert ended(lambda: port.read(5), lambda: (port.cancel_write(), port.cancel_read())) == b""
    assert ended(lambda: port.read(1), port.close)[0][0] == "PortNotOpenError"


def test_cancels_and_closes_at_any_moment(far):
    """Cancels that hit a read just before, in and after its wait; then closes likewise."""
    far.echo()
    for attempt in range(30):
        port = ours.Serial(far.path, timeout=10)
        alive = True

        def reader():
            with contextlib.suppress(ours.SerialException):
                while alive:
                    port.read(port.in_waiting or 1)

        thread = aside(reader)
        port.write(b"x" * attempt)
        time.sleep(attempt % 5 / 1000)
        alive = attempt % 2
        port.close() if alive else port.cancel_read()
        thread.join(5)
        assert not thread.is_alive()
        port.close()


def test_a_dropped_port_is_closed(far):
    port = ours.Serial(far.path, exclusive=True)
    before = len(os.listdir("/proc/self/fd"))
    del port
    gc.collect()
    assert len(os.listdir("/proc/self/fd")) < before
    ours.Serial(far.path, exclusive=True).close()


def test_who_takes_the_descriptor_misses_no_byte(far):
    """A program that has read byte by byte for long goes over to the descriptor, and gets each byte once."""
    port = ours.Serial(far.path, timeout=10)
    data = bytes(range(100))
    sent(far, port, data)
    first = b"".join(port.read() for _ in range(20))
    descriptor = port.fileno()
    held = port.read(port.in_waiting)
    assert first + held == data
    sent(far, port, b"more")
    assert readable(descriptor) and os.read(descriptor, 2) + port.read(2) == b"more"
    assert b"".join(port.read() for _ in range(sent(far, port, data))) == data
    assert not readable(descriptor, 0)


def test_refusals_name_the_value_and_what_is_possible(tmp_path):
    (tmp_path / "file").write_text("")
    for path, settings, named in (
        (None, {"bytesize": 9}, "9.*5, 6, 7, 8"), ("/dev/nonesuch", {}, "/dev/nonesuch"),
        (str(tmp_path / "file"), {}, "not a serial device"), ("null-modem:options?keeps=yes", {}, "keep"),
    ):  # fmt: skip
        with pytest.raises((OSError, ValueError), match=named):
            ours.Serial(path, **settings)


def test_paths_of_the_library(far):
    """Options in the path go over those that the settings ask for, and ports without a device work alike."""
    with ours.Serial(far.path + "?exclusive=yes&keep=yes", timeout=10) as port:
        assert sent(far, port, b"ab") == 2 and port.read(2) == b"ab"
        with pytest.raises(ours.SerialException):
            ours.Serial(far.path + "?exclusive=yes")
    one = ours.Serial("null-modem:python", timeout=10, rtscts=False)
    two = ours.Serial("null-modem:python", timeout=10)
    one.rts, one.dtr = False, True
    until(lambda: not two.cts and two.dsr and two.cd)
    two.close()
    two.dtr = False  # what is said of a line while the port is closed holds for the open
    two.open()
    until(lambda: not one.dsr and one.cts)
    two.write(b"across\n")
    assert one.readline() == b"across\n" and one.in_waiting == 0
    with pytest.raises(OSError):
        one.fileno()
    one.close()
    two.close()

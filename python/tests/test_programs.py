"""Programs that nobody here wrote run on brisolt as they are."""

import importlib.util
import os
import pty
import shutil
import subprocess
import sys
import time

import pytest
from conftest import PATIENCE, readable, until

COMPAT = [sys.executable, "-m", "brisolt.compat"]

def uses_brisolt(process):
    """Whether the program has the library in its memory by now."""
    return "libbrisolt" in open(f"/proc/{process.pid}/maps").read()


def test_grabserial_prints_what_comes(far, started):
    if shutil.which("grabserial") is None:
        pytest.skip("grabserial is not installed (Debian: grabserial)")
    asked = "grabserial", "-S", "-d", far.path, "-b", "115200", "-q", "the end", "-t"
    program = started(*COMPAT, *asked, stdout=subprocess.PIPE, text=True)
    until(lambda: uses_brisolt(program))
    while program.poll() is None:  # it drops what came before it looked
        far.send(b"booting\nthe end\n")
        time.sleep(0.1)
    out, _ = program.communicate(timeout=PATIENCE)
    assert "booting" in out and "the end" in out and program.returncode == 0


# Libraries, each with its Debian package, what the far end answers (None: what it hears), a script and what that prints.
SCRIPTS = {
    "pymodbus": ("python3-pymodbus", (bytes.fromhex("010300000002c40b"), bytes.fromhex("010304000a0014da3e")), """
from pymodbus.client import ModbusSerialClient
client = ModbusSerialClient(sys.argv[1], baudrate=19200, timeout=5)
assert client.connect()
for _ in range(3):
    print(client.read_holding_registers(0, 2, slave=1).registers)
client.close()
""", "[10, 20]\n" * 3),
    "pyvisa_py": ("python3-pyvisa-py", (b"*IDN?\n", b"maker,meter,1,2\n"), """
import pyvisa
meter = pyvisa.ResourceManager("@py").open_resource("ASRL" + sys.argv[1] + "::INSTR", read_termination="\\n",
                                                    write_termination="\\n", baud_rate=9600, timeout=5000)
print(meter.query("*IDN?"))
meter.close()
""", "maker,meter,1,2\n"),
    "can": ("python3-can", (b"t1232AABB\r", b"t4562CCDD\r"), """
import can
bus = can.Bus(interface="slcan", channel=sys.argv[1], bitrate=500000, sleep_after_open=0.2)
bus.send(can.Message(arbitration_id=0x123, data=b"\\xaa\\xbb", is_extended_id=False))
message = bus.recv(10)
print(hex(message.arbitration_id), message.data.hex())
bus.shutdown()
""", "0x456 ccdd\n"),
    "serial_asyncio": ("python3-serial-asyncio", None, """
import asyncio, serial_asyncio
async def main():
    reader, writer = await serial_asyncio.open_serial_connection(url=sys.argv[1], baudrate=115200)
    writer.write(b"x" * 100000 + b"\\nlast\\n")
    total = 0
    while total < 100006:
        total += len(await asyncio.wait_for(reader.read(65536), 20))
    print(total)
    writer.close()
asyncio.run(main())
""", "100006\n"),
    "twisted": ("python3-twisted", None, """
from twisted.internet import protocol, reactor, serialport
class Echo(protocol.Protocol):
    got = b""
    def connectionMade(self):
        self.transport.write(b"hello")
    def dataReceived(self, data):
        self.got += data
        if self.got == b"hello":
            print(self.got)
            self.transport.loseConnection()
    def connectionLost(self, reason):
        reactor.stop()
serialport.SerialPort(Echo(), sys.argv[1], reactor, baudrate=115200)
reactor.callLater(20, reactor.stop)
reactor.run()
""", "b'hello'\n"),
}  # fmt: skip


@pytest.mark.parametrize("module", SCRIPTS)
def test_scripts_on_libraries_of_others(far, tmp_path, module):
    package, answer, text, printed = SCRIPTS[module]
    if importlib.util.find_spec(module) is None:
        pytest.skip(f"{module} is not installed (Debian: {package})")
    far.answer(*answer) if answer else far.echo()
    script = tmp_path / "program.py"
    # At its end it tells that it was brisolt it has run on.
    script.write_text(f"import sys{text}print(sys.modules['serial'].__name__, 'brisolt._native' in sys.modules)")
    done = subprocess.run([*COMPAT, script, far.path], capture_output=True, text=True, timeout=60)
    assert (done.returncode, done.stdout) == (0, printed + "brisolt.serial True\n"), done.stderr


def test_printcore_prints_a_file(far, started, tmp_path):
    if shutil.which("printcore") is None:
        pytest.skip("printcore is not installed (Debian: printcore)")
    (tmp_path / "cube.gcode").write_text("G28\nG1 X10 Y10\nM104 S0\n")
    far.answer(b"\n", b"ok T:20\n")
    asked = "printcore", "-b", "115200", far.path, tmp_path / "cube.gcode"
    program = started(*COMPAT, *asked, stderr=subprocess.PIPE)
    until(lambda: uses_brisolt(program))
    far.send(b"start\n")
    sent = bytearray()
    until(lambda: sent.extend(far.take(1)) or b"M104 S0" in sent)
    assert b"G28" in sent and b"G1 X10 Y10" in sent


def test_miniterm_is_a_terminal(far, started):
    """Keys go to the port, what comes is shown, the menu changes settings, the exit key ends it."""
    master, slave = pty.openpty()
    asked = "-m", "serial.tools.miniterm", far.path, "115200", "--eol", "LF"
    program = started(*COMPAT, *asked, stdin=slave, stdout=slave, stderr=slave)
    os.close(slave)
    shown = b""

    def shows(text):
        nonlocal shown
        end = time.monotonic() + PATIENCE
        while text not in shown:
            assert readable(master, end - time.monotonic()), shown
            shown += os.read(master, 4096)
        return True

    assert shows(b"Quit: Ctrl+]") and uses_brisolt(program)
    far.send(b"prompt> ")
    assert shows(b"prompt> ")
    os.write(master, b"ls\r")
    assert far.take(3) in (b"ls\n", b"ls\r")
    os.write(master, b"\x14b")
    assert shows(b"Baudrate: ")
    os.write(master, b"9600\n")
    assert shows(b"9600,8,N,1")
    os.write(master, b"\x1d")
    assert shows(b"--- exit ---")
    program.wait(PATIENCE)
    os.close(master)


def test_folder_for_the_path_and_refusals(far, tmp_path):
    """The folder that is printed makes `import serial` ours in any program; what is no program is refused."""
    folder = subprocess.check_output(COMPAT, text=True).strip()
    program = """
import serial, serial.tools.list_ports, brisolt.serial.tools.list_ports as ours, serial.serialutil as util
from importlib.metadata import version
assert serial.tools.list_ports is ours and serial.SerialException is util.SerialException
assert (serial.__name__, version('pyserial')) == ('brisolt.serial', '3.5')
"""
    environment = {**os.environ, "PYTHONPATH": os.pathsep.join([folder, os.environ["PYTHONPATH"]])}
    subprocess.run([sys.executable, "-c", program], env=environment, check=True)
    if shutil.which("pyserial-ports"):  # found by the names of the package that it belongs to
        subprocess.run([*COMPAT, "pyserial-ports", "-q"], check=True, stdout=subprocess.DEVNULL)
    for arguments in ["no-such-program"], ["/bin/true"]:
        done = subprocess.run([*COMPAT, *arguments], capture_output=True, text=True)
        assert done.returncode != 0 and arguments[0] in done.stderr

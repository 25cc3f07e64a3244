"""A small terminal: python3 -m brisolt.serial.tools.miniterm [PORT [BAUDRATE]]. Keys go to the port, what comes is
shown; Ctrl+] ends it, Ctrl+T and a letter changes settings."""

from __future__ import annotations

import atexit
import codecs
import os
import select
import sys
import termios
import threading

from .. import VERSION, SerialException, serial_for_url
from . import hexlify_codec
from .list_ports import comports

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Iterable
    from typing import Any

__all__ = ["Console", "ConsoleBase", "Miniterm", "Transform", "ask_for_port", "key_description", "main"]

codecs.register(lambda name: hexlify_codec.getregentry() if name == "hexlify" else None)


def key_description(character: str) -> str:
    """A key in words: Ctrl+A."""
    return f"Ctrl+{chr(ord(character) + 64)}" if ord(character) < 32 else repr(character)


def tell(text: str, end: str = "\n") -> None:
    sys.stderr.write(text + end)
    sys.stderr.flush()


class ConsoleBase:
    """Shows what comes. A program that brings a console of its own begins here."""

    def __init__(self) -> None:
        self.byte_output = sys.stdout.buffer
        self.output = sys.stdout

    def getkey(self) -> str:
        """The next key; "" when there is none any more."""
        return ""

    def write_bytes(self, byte_string: bytes) -> None:
        self.byte_output.write(byte_string)
        self.byte_output.flush()

    def write(self, text: str) -> None:
        self.output.write(text)
        self.output.flush()

    def setup(self) -> None:
        """Single keys from now on."""

    def cleanup(self) -> None:
        """Lines again."""

    def cancel(self) -> None:
        """Ends the getkey() that waits."""

    def __enter__(self) -> Any:
        self.cleanup()
        return self

    def __exit__(self, *exception: object) -> None:
        self.setup()


class Console(ConsoleBase):
    """The user's terminal: single keys without echo while the program runs. In a `with` it reads lines as usual."""

    def __init__(self) -> None:
        super().__init__()
        self.fd = sys.stdin.fileno()
        self.old = termios.tcgetattr(self.fd)
        self._decoder = codecs.getincrementaldecoder(sys.stdin.encoding or "utf-8")("replace")
        self._keys = ""
        self._wake_read, self._wake_write = os.pipe()
        atexit.register(self.cleanup)

    def setup(self) -> None:
        new = termios.tcgetattr(self.fd)
        new[3] &= ~(termios.ICANON | termios.ECHO | termios.ISIG)
        new[6][termios.VMIN], new[6][termios.VTIME] = 1, 0
        termios.tcsetattr(self.fd, termios.TCSANOW, new)

    def cleanup(self) -> None:
        termios.tcsetattr(self.fd, termios.TCSAFLUSH, self.old)

    def getkey(self) -> str:
        """The next key; "" when the wait was cancelled or the terminal has gone."""
        while not self._keys:
            ready, _, _ = select.select([self.fd, self._wake_read], [], [])
            if self._wake_read in ready:
                os.read(self._wake_read, 100)
                return ""
            data = os.read(self.fd, 100)
            if not data:
                return ""
            self._keys = self._decoder.decode(data)
        key, self._keys = self._keys[0], self._keys[1:]
        return "\b" if key == "\x7f" else key

    def cancel(self) -> None:
        os.write(self._wake_write, b"x")


class Transform:
    """Changes nothing."""

    def rx(self, text: str) -> str:
        """What was received, for the screen."""
        return text

    def tx(self, text: str) -> str:
        """What was typed, for the port."""
        return text

    def echo(self, text: str) -> str:
        """What was typed, for the screen."""
        return text


class CRLF(Transform):
    """Enter sends CR and LF"""

    def tx(self, text: str) -> str:
        return text.replace("\n", "\r\n")


class CR(Transform):
    """Enter sends CR"""

    def rx(self, text: str) -> str:
        return text.replace("\r", "\n")

    def tx(self, text: str) -> str:
        return text.replace("\n", "\r")


class LF(Transform):
    """Enter sends LF"""


class NoTerminal(Transform):
    """show control codes of terminals as symbols"""

    REPLACEMENT_MAP = {code: 0x2400 + code for code in range(32) if chr(code) not in "\r\n\b\t"} | {
        0x7F: 0x2421,
        0x9B: 0x2425,
    }

    def rx(self, text: str) -> str:
        return text.translate(self.REPLACEMENT_MAP)

    echo = rx


class NoControls(NoTerminal):
    """show all control codes and blanks as symbols"""

    REPLACEMENT_MAP = {code: 0x2400 + code for code in range(32)} | {0x20: 0x2423, 0x7F: 0x2421, 0x9B: 0x2425}


class Printable(Transform):
    """show the numbers of characters beyond ASCII, and control codes as symbols"""

    def rx(self, text: str) -> str:
        return "".join(map(self._shown, text))

    echo = rx

    @staticmethod
    def _shown(character: str) -> str:
        if " " <= character < "\x7f" or character in "\r\n\b\t":
            return character
        if character < " ":
            return chr(0x2400 + ord(character))
        return "".join(chr(0x2080 + int(digit)) for digit in str(ord(character))) + " "


class Colorize(Transform):
    """show what was received and what was typed in different colours"""

    input_color = "\x1b[37m"
    echo_color = "\x1b[31m"

    def rx(self, text: str) -> str:
        return self.input_color + text

    def echo(self, text: str) -> str:
        return self.echo_color + text


class DebugIO(Transform):
    """tell what is sent and received"""

    def rx(self, text: str) -> str:
        tell(f" [RX:{text!r}] ", "")
        return text

    def tx(self, text: str) -> str:
        tell(f" [TX:{text!r}] ", "")
        return text


EOL_TRANSFORMATIONS: dict[str, type[Transform]] = {"crlf": CRLF, "cr": CR, "lf": LF}
TRANSFORMATIONS: dict[str, type[Transform]] = {
    "direct": Transform, "default": NoTerminal, "nocontrol": NoControls, "printable": Printable,
    "colorize": Colorize, "debug": DebugIO,
}  # fmt: skip


def ask_for_port() -> str:
    """Lists the ports and lets the user choose one, by number or name."""
    found = sorted(comports())
    tell("\n--- Available ports:")
    for number, info in enumerate(found, 1):
        tell(f"--- {number:2}: {info.device:20} {info.description!r}")
    while True:
        tell("--- Enter port index or full name: ", "")
        given = sys.stdin.readline()
        if not given:
            raise KeyboardInterrupt
        given = given.strip()
        if not given.isdigit():
            return given
        if 1 <= int(given) <= len(found):
            return found[int(given) - 1].device
        tell("--- Invalid index!")


def active(level: object) -> str:
    return "active" if level else "inactive"


class Miniterm:
    """The terminal on an open port."""

    def __init__(
        self, serial_instance: Any, echo: bool = False, eol: str = "crlf", filters: Iterable[str] = ()
    ) -> None:
        self.console = Console()
        self.serial = serial_instance
        self.echo = echo
        self.raw = False
        self.eol = eol
        self.filters = list(filters)
        self.exit_character = "\x1d"
        self.menu_character = "\x14"
        self.alive = False
        self._reader_alive = False
        self.set_rx_encoding("UTF-8")
        self.set_tx_encoding("UTF-8")
        self.update_transformations()

    # ---- Threads ----

    def start(self) -> None:
        self.alive = True
        self._start_reader()
        self.console.setup()
        self.transmitter_thread = threading.Thread(target=self.writer, name="tx", daemon=True)
        self.transmitter_thread.start()

    def stop(self) -> None:
        self.alive = False

    def join(self, transmit_only: bool = False) -> None:
        self.transmitter_thread.join()
        if not transmit_only:
            self._stop_reader()

    def close(self) -> None:
        self.serial.close()
        self.console.cleanup()

    def _start_reader(self) -> None:
        self._reader_alive = True
        self.receiver_thread = threading.Thread(target=self.reader, name="rx", daemon=True)
        self.receiver_thread.start()

    def _stop_reader(self) -> None:
        self._reader_alive = False
        if hasattr(self.serial, "cancel_read"):
            self.serial.cancel_read()
        self.receiver_thread.join()

    def reader(self) -> None:
        """What comes goes to the screen."""
        try:
            while self.alive and self._reader_alive:
                data = self.serial.read(self.serial.in_waiting or 1)
                if not data:
                    continue
                if self.raw:
                    self.console.write_bytes(data)
                    continue
                text = self.rx_decoder.decode(data)
                for transformation in self.rx_transformations:
                    text = transformation.rx(text)
                self.console.write(text)
        except SerialException as error:
            if self.alive and self._reader_alive:
                tell(f"\n--- {error}")
            self.alive = False
            self.console.cancel()

    def writer(self) -> None:
        """Keys go to the port, after the menu key to the menu."""
        menu = False
        try:
            while self.alive:
                key = self.console.getkey()
                if not key or not self.alive:
                    break
                if menu:
                    menu = False
                    self.handle_menu_key(key)
                elif key == self.menu_character:
                    menu = True
                elif key == self.exit_character:
                    break
                else:
                    self._send(key)
        except SerialException as error:
            tell(f"\n--- {error}")
        finally:
            self.alive = False

    def _send(self, key: str) -> None:
        text = key
        for transformation in self.tx_transformations:
            text = transformation.tx(text)
        self.serial.write(self.tx_encoder.encode(text))
        if self.echo:
            text = key
            for transformation in self.tx_transformations:
                text = transformation.echo(text)
            self.console.write(text)

    # ---- How it shows and sends ----

    def update_transformations(self) -> None:
        kinds = [EOL_TRANSFORMATIONS[self.eol], *(TRANSFORMATIONS[name] for name in self.filters)]
        self.tx_transformations = [kind() for kind in kinds]
        self.rx_transformations = self.tx_transformations[::-1]

    def set_rx_encoding(self, encoding: str, errors: str = "replace") -> None:
        self.input_encoding = encoding
        self.rx_decoder = codecs.getincrementaldecoder(encoding)(errors)

    def set_tx_encoding(self, encoding: str, errors: str = "replace") -> None:
        self.output_encoding = encoding
        self.tx_encoder = codecs.getincrementalencoder(encoding)(errors)

    def dump_port_settings(self) -> None:
        port = self.serial
        tell(f"\n--- Settings: {port.name}  {port.baudrate},{port.bytesize},{port.parity},{port.stopbits}")
        tell(f"--- RTS: {active(port.rts):8}  DTR: {active(port.dtr):8}  BREAK: {active(port.break_condition):8}")
        try:
            inputs = {name: active(getattr(port, name.lower())) for name in ("CTS", "DSR", "RI", "CD")}
            tell("--- " + "  ".join(f"{name}: {level:8}" for name, level in inputs.items()))
        except OSError:
            tell("--- the device has no modem lines")
        tell(f"--- software flow control: {active(port.xonxoff)}")
        tell(f"--- hardware flow control: {active(port.rtscts)}")
        tell(f"--- serial input encoding: {self.input_encoding}")
        tell(f"--- serial output encoding: {self.output_encoding}")
        tell(f"--- EOL: {self.eol.upper()}")
        tell(f"--- filters: {' '.join(self.filters)}")

    # ---- The menu ----

    def handle_menu_key(self, c: str) -> None:
        """One key after the menu key. A setting that the port refuses is told, and everything is as before."""
        try:
            self._do(c)
        except (OSError, ValueError) as error:
            tell(f"--- {error} ---")

    def _do(self, key: str) -> None:
        settings: dict[str, tuple[str, object]] = {
            "7": ("bytesize", 7), "8": ("bytesize", 8), "1": ("stopbits", 1), "2": ("stopbits", 2),
            "3": ("stopbits", 1.5), "x": ("xonxoff", False), "X": ("xonxoff", True), "r": ("rtscts", False),
            "R": ("rtscts", True), **{name: ("parity", name.upper()) for name in "nNeEoOsSmM"},
        }  # fmt: skip
        toggles = {"\x12": "rts", "\x04": "dtr", "\x02": "break_condition"}
        actions = {
            "\x15": self.upload_file, "\x06": self.change_filter, "\x0c": self._next_eol, "\x01": self.change_encoding,
            "\x09": self.dump_port_settings, "\x05": self._toggle_echo, "p": self.change_port, "z": self.suspend_port,
            "b": self.change_baudrate, "q": self.stop,
        }  # fmt: skip
        if key in (self.menu_character, self.exit_character):
            self._send(key)
        elif key in "\x08hH?":
            tell(self.get_help_text())
        elif key in settings:
            setattr(self.serial, *settings[key])
            self.dump_port_settings()
        elif key in toggles:
            name = toggles[key]
            setattr(self.serial, name, not getattr(self.serial, name))
            tell(f"--- {name.split('_')[0].upper()} {active(getattr(self.serial, name))} ---")
        elif key.lower() in actions:
            actions[key.lower()]()
        else:
            tell(f"--- unknown menu character {key_description(key)} --")

    def _asked(self, question: str) -> str:
        with self.console:  # which drops what was typed before the question
            tell(f"\n--- {question}: ", "")
            return sys.stdin.readline().strip()

    def _toggle_echo(self) -> None:
        self.echo = not self.echo
        tell(f"--- local echo {active(self.echo)} ---")

    def _next_eol(self) -> None:
        names = list(EOL_TRANSFORMATIONS)
        self.eol = names[(names.index(self.eol) + 1) % len(names)]
        self.update_transformations()
        tell(f"--- EOL: {self.eol.upper()} ---")

    def upload_file(self) -> None:
        name = self._asked("File to upload")
        if not name:
            return
        with open(name, "rb") as file:
            tell(f"--- Sending file {name} ---")
            while block := file.read(1024):
                self.serial.write(block)
                self.serial.flush()
                tell(".", "")
        tell(f"\n--- File {name} sent ---")

    def change_filter(self) -> None:
        names = (
            self._asked(f"Filters ({', '.join(sorted(TRANSFORMATIONS))}) [{' '.join(self.filters)}]").lower().split()
        )
        unknown = [name for name in names if name not in TRANSFORMATIONS]
        if unknown:
            tell(f"--- unknown filter: {unknown[0]!r}")
        elif names:
            self.filters = names
            self.update_transformations()
        tell(f"--- filters: {' '.join(self.filters)}")

    def change_encoding(self) -> None:
        name = self._asked(f"Encoding [{self.input_encoding}]")
        try:
            if name:
                codecs.lookup(name)
                self.set_rx_encoding(name)
                self.set_tx_encoding(name)
        except LookupError:
            tell(f"--- invalid encoding name: {name}")
        tell(f"--- serial input encoding: {self.input_encoding}")
        tell(f"--- serial output encoding: {self.output_encoding}")

    def change_baudrate(self) -> None:
        self.serial.baudrate = int(self._asked("Baudrate"))
        self.dump_port_settings()

    def change_port(self) -> None:
        with self.console:
            try:
                name = ask_for_port()
            except KeyboardInterrupt:
                return
        if not name or name == self.serial.port:
            return
        self._stop_reader()
        try:
            port = serial_for_url(name, do_not_open=True)
            port.apply_settings(self.serial.get_settings())
            port.rts, port.dtr = self.serial.rts, self.serial.dtr
            port.open()
        except (OSError, ValueError) as error:
            tell(f"--- ERROR opening new port: {error} ---")
        else:
            self.serial.close()
            self.serial = port
            tell(f"--- Port changed to: {name} ---")
        self._start_reader()

    def suspend_port(self) -> None:
        self._stop_reader()
        self.serial.close()
        tell(f"\n--- Port closed: {self.serial.port} ---")
        while not self.serial.is_open:
            tell(f"--- Quit: {key_description(self.exit_character)} | any other key to reconnect ---")
            key = self.console.getkey()
            if not key or key == self.exit_character:
                self.stop()
                break
            try:
                self.serial.open()
                tell(f"--- Port opened: {self.serial.port} ---")
            except (OSError, ValueError) as error:
                tell(f"--- ERROR opening port: {error} ---")
        self._start_reader()

    def get_help_text(self) -> str:
        menu = key_description(self.menu_character)
        return f"""
--- pySerial ({VERSION}) - miniterm - help
---
--- {key_description(self.exit_character):8} ends the program (or {menu} Q)
--- {menu:8} and one of these keys:
---    {menu:7} sends the menu character itself    {key_description(self.exit_character):7} sends the exit character itself
---    Ctrl+I  settings           Ctrl+U  upload a file      Ctrl+A  encoding     Ctrl+F  filters
---    Ctrl+R  RTS on/off         Ctrl+D  DTR on/off         Ctrl+B  BREAK on/off
---    Ctrl+E  echo on/off        Ctrl+L  line ends
---    p       another port       z       close for a while  b       baud rate
---    7 8     data bits          N E O S M  parity          1 2 3   stop bits (1, 2, 1.5)
---    x X     XON/XOFF off/on    r R     RTS/CTS off/on
"""


def _arguments(port: str | None, baudrate: int, rts: int | None, dtr: int | None) -> Any:
    import argparse

    parser = argparse.ArgumentParser(description="Miniterm - A simple terminal program for the serial port.")
    parser.add_argument("port", nargs="?", default=port, help='serial port name ("-" to show port list)')
    parser.add_argument("baudrate", nargs="?", type=int, default=baudrate, help="baud rate, default: %(default)s")
    group = parser.add_argument_group("port settings")
    group.add_argument("--parity", choices="NEOSM", type=str.upper, default="N", help="parity, default: N")
    group.add_argument("--rtscts", action="store_true", help="RTS/CTS flow control")
    group.add_argument("--xonxoff", action="store_true", help="software flow control")
    group.add_argument("--rts", type=int, default=rts, help="initial RTS line state (0, 1)")
    group.add_argument("--dtr", type=int, default=dtr, help="initial DTR line state (0, 1)")
    group.add_argument("--non-exclusive", dest="exclusive", action="store_false", help="others may open the port, too")
    group.add_argument("--ask", action="store_true", help="ask again for a port when the open fails")
    group = parser.add_argument_group("data handling")
    group.add_argument("-e", "--echo", action="store_true", help="local echo")
    group.add_argument("--encoding", dest="serial_port_encoding", metavar="CODEC", default="UTF-8",
                       help="encoding on the port (hexlify, Latin1, UTF-8), default: %(default)s")  # fmt: skip
    group.add_argument("-f", "--filter", action="append", metavar="NAME", default=[], help="add a filter (help: list)")
    group.add_argument("--eol", choices=["CR", "LF", "CRLF"], type=str.upper, default="CRLF", help="line ends")
    group.add_argument("--raw", action="store_true", help="no encodings and filters")
    group = parser.add_argument_group("hotkeys")
    group.add_argument(
        "--exit-char", type=int, metavar="NUM", default=0x1D, help="ends the program, default: %(default)s"
    )
    group.add_argument(
        "--menu-char", type=int, metavar="NUM", default=0x14, help="opens the menu, default: %(default)s"
    )
    group = parser.add_argument_group("diagnostics")
    group.add_argument("-q", "--quiet", action="store_true", help="say nothing but errors")
    group.add_argument("--develop", action="store_true", help="show where an error was raised")
    args = parser.parse_args()
    if args.menu_char == args.exit_char:
        parser.error("--exit-char can not be the same as --menu-char")
    unknown = [name for name in args.filter if name not in TRANSFORMATIONS]
    if unknown:
        listed = "\n".join(f"{name:<10} = {kind.__doc__}" for name, kind in sorted(TRANSFORMATIONS.items()))
        tell(f"Available filters:\n{listed}")
        raise SystemExit(1)
    return args


def _opened(args: Any) -> Any:
    """The port, asked for when none was given or, with --ask, when it cannot be opened."""
    while True:
        if args.port in (None, "-"):
            try:
                args.port = ask_for_port()
            except KeyboardInterrupt:
                raise SystemExit("\nuser aborted and port is not given") from None
        try:
            port = serial_for_url(
                args.port, args.baudrate, parity=args.parity, rtscts=args.rtscts, xonxoff=args.xonxoff, do_not_open=True
            )
            if not hasattr(port, "cancel_read"):
                port.timeout = 1  # the reader then looks now and then whether it should end
            for name in "dtr", "rts":
                if getattr(args, name) is not None:
                    if not args.quiet:
                        tell(f"--- forcing {name.upper()} {active(getattr(args, name))}")
                    setattr(port, name, getattr(args, name))
            port.exclusive = args.exclusive
            port.open()
            return port
        except (SerialException, ValueError) as error:
            tell(f"could not open port {args.port!r}: {error}")
            if args.develop:
                raise
            if not args.ask:
                raise SystemExit(1) from None
            args.port = "-"


def main(
    default_port: str | None = None,
    default_baudrate: int = 9600,
    default_rts: int | None = None,
    default_dtr: int | None = None,
) -> None:
    """The program. A program of one's own may call it with other defaults."""
    args = _arguments(default_port, default_baudrate, default_rts, default_dtr)
    port = _opened(args)
    miniterm = Miniterm(port, echo=args.echo, eol=args.eol.lower(), filters=args.filter or ["default"])
    miniterm.exit_character = chr(args.exit_char)
    miniterm.menu_character = chr(args.menu_char)
    miniterm.raw = args.raw
    miniterm.set_rx_encoding(args.serial_port_encoding)
    miniterm.set_tx_encoding(args.serial_port_encoding)
    if not args.quiet:
        leave, menu = key_description(miniterm.exit_character), key_description(miniterm.menu_character)
        tell(f"--- Miniterm on {port.name}  {port.baudrate},{port.bytesize},{port.parity},{port.stopbits} ---")
        tell(f"--- Quit: {leave} | Menu: {menu} | Help: {menu} followed by {key_description(chr(8))} ---")
    miniterm.start()
    try:
        miniterm.join(True)
    except KeyboardInterrupt:
        pass
    if not args.quiet:
        tell("\n--- exit ---")
    miniterm.stop()
    miniterm.join()
    miniterm.close()


if __name__ == "__main__":
    main()

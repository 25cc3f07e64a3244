"""The far end of rfc2217://: gives a serial port to a client on the network, for programs that redirect one."""

from __future__ import annotations

from . import rfc2217_codes as codes
from .rfc2217_codes import (
    BINARY, COM_PORT_OPTION, DO, DONT, ECHO, FLOWS, IAC, IAC_DOUBLED, RFC2217_ANSWER_MAP, SB, SE, SET_CONTROL, SGA,
    SWITCHES, WILL, WONT,
)  # fmt: skip
from .serialutil import SerialException, iterbytes

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Callable, Iterator
    from typing import Any

__all__ = ["ACTIVE", "INACTIVE", "M_IAC_SEEN", "M_NEGOTIATE", "M_NORMAL", "PortManager", "REQUESTED"]

M_NORMAL, M_IAC_SEEN, M_NEGOTIATE = range(3)
REQUESTED, ACTIVE, INACTIVE = "REQUESTED", "ACTIVE", "INACTIVE"

_LONGEST_SUBOPTION = 256  # a client that never ends one takes no more of our memory
_TO_INBOUND = 13  # from the code of a flow control to that of the inbound one alone

# The property that a request sets, the bytes of its value, and the codes of the values.
_SETTINGS: dict[bytes, tuple[str, int, dict[Any, int]]] = {
    codes.SET_BAUDRATE: ("baudrate", 4, {}),
    codes.SET_DATASIZE: ("bytesize", 1, {}),
    codes.SET_PARITY: ("parity", 1, codes.RFC2217_PARITY_MAP),
    codes.SET_STOPSIZE: ("stopbits", 1, codes.RFC2217_STOPBIT_MAP),
}

# What a client may ask of an output line, and the two answers.
_ASKED: dict[bytes, tuple[str, bytes, bytes]] = {
    codes.SET_CONTROL_REQ_BREAK_STATE: ("break_condition", codes.SET_CONTROL_BREAK_OFF, codes.SET_CONTROL_BREAK_ON),
    codes.SET_CONTROL_REQ_DTR: ("dtr", codes.SET_CONTROL_DTR_OFF, codes.SET_CONTROL_DTR_ON),
    codes.SET_CONTROL_REQ_RTS: ("rts", codes.SET_CONTROL_RTS_OFF, codes.SET_CONTROL_RTS_ON),
}
_INBOUND = {
    codes.SET_CONTROL_REQ_FLOW_SETTING_IN, codes.SET_CONTROL_USE_NO_FLOW_CONTROL_IN,
    codes.SET_CONTROL_USE_SW_FLOW_CONTOL_IN, codes.SET_CONTROL_USE_HW_FLOW_CONTOL_IN,
    codes.SET_CONTROL_USE_DTR_FLOW_CONTROL,
}  # fmt: skip


class _Option:
    """What is agreed on about an option of telnet for one of the two directions: ours (we WILL, the client says DO)
    or the client's."""

    def __init__(
        self, manager: PortManager, option: bytes, ours: bool, wanted: bool, agreed: Callable[[], None] | None = None
    ) -> None:
        self.manager = manager
        self.option = option
        self.yes, self.no = (WILL, WONT) if ours else (DO, DONT)
        self.client_yes, self.client_no = (DO, DONT) if ours else (WILL, WONT)
        self.agreed = agreed
        self.state = INACTIVE
        if wanted:
            self.state = REQUESTED
            manager.telnet_send_option(self.yes, option)

    def process_incoming(self, command: bytes) -> None:
        """A word of the client about this option. It is answered when it is no answer itself."""
        if command == self.client_yes and self.state != ACTIVE:
            if self.state == INACTIVE:
                self.manager.telnet_send_option(self.yes, self.option)
            self.state = ACTIVE
            if self.agreed is not None:
                self.agreed()
        elif command == self.client_no and self.state != INACTIVE:
            if self.state == ACTIVE:
                self.manager.telnet_send_option(self.no, self.option)
            self.state = INACTIVE


class PortManager:
    """Speaks telnet and its com-port option with one client for `serial_port`, any port of this package.

    connection   has write(bytes), which any thread may call; what is written goes to the client as it is
    logger       who is told what the client asks for; None: nobody

    The program pushes what comes from the client through filter() and what goes to it through escape(), and calls
    check_modem_lines() from time to time, so that the client learns of changed lines.
    """

    def __init__(self, serial_port: Any, connection: Any, logger: Any = None) -> None:
        self.serial = serial_port
        self.connection = connection
        self.logger = logger
        self.mode = M_NORMAL
        self.suboption: bytearray | None = None
        self.telnet_command: bytes | None = None
        self.modemstate_mask = 255
        self.linstate_mask = 0
        self.last_modemstate: int | None = None
        self.suspended = False  #: the client has asked for no more bytes; the program may heed it
        self._client_is_rfc2217 = False
        self._telnet_options = [
            _Option(self, ECHO, ours=True, wanted=True),
            _Option(self, SGA, ours=True, wanted=True),
            _Option(self, SGA, ours=False, wanted=False),
            _Option(self, BINARY, ours=True, wanted=False),
            _Option(self, BINARY, ours=False, wanted=True),
            _Option(self, COM_PORT_OPTION, ours=True, wanted=True, agreed=self._client_ok),
            _Option(self, COM_PORT_OPTION, ours=False, wanted=False, agreed=self._client_ok),
        ]

    def _tell(self, level: str, text: str, *values: object) -> None:
        if self.logger:
            getattr(self.logger, level)(text, *values)

    def _client_ok(self) -> None:
        """The client speaks the com-port option: it learns how the lines are."""
        self._client_is_rfc2217 = True
        self._tell("info", "client accepts RFC 2217")
        self.check_modem_lines(force_notification=True)

    # ---- To the client ----

    def telnet_send_option(self, action: bytes, option: bytes) -> None:
        self.connection.write(IAC + action + option)

    def rfc2217_send_subnegotiation(self, option: bytes, value: bytes = b"") -> None:
        said = option + value.replace(IAC, IAC_DOUBLED)
        self.connection.write(IAC + SB + COM_PORT_OPTION + said + IAC + SE)

    def check_modem_lines(self, force_notification: bool = False) -> None:
        """Tells the client of lines that have changed and that it wants to know of; when forced, of all."""
        now = codes.modem_state(self.serial)
        changed = (now ^ (self.last_modemstate or 0)) >> 4
        if now == self.last_modemstate and not force_notification:
            return
        told = (now | changed) & self.modemstate_mask
        if force_notification or (self._client_is_rfc2217 and told):
            self.rfc2217_send_subnegotiation(codes.SERVER_NOTIFY_MODEMSTATE, bytes([told]))
            self._tell("info", "NOTIFY_MODEMSTATE: %s", now | changed)
        self.last_modemstate = now

    def escape(self, data: Any) -> Iterator[bytes]:
        """Bytes of the port as they are sent to the client."""
        for byte in iterbytes(data):
            yield byte
            if byte == IAC:
                yield byte

    # ---- From the client ----

    def filter(self, data: Any) -> Iterator[bytes]:
        """Those of the client's bytes that are for the port; what else it says is done on the way."""
        for byte in iterbytes(data):
            if self.mode == M_NEGOTIATE:
                self.mode = M_NORMAL
                self._telnet_negotiate_option(self.telnet_command, byte)
                continue
            if self.mode == M_NORMAL and byte == IAC:
                self.mode = M_IAC_SEEN
                continue
            if self.mode == M_IAC_SEEN:
                self.mode = M_NORMAL
                if byte != IAC:
                    self._telnet_received(byte)
                    continue
            if self.suboption is None:
                yield byte
            elif len(self.suboption) < _LONGEST_SUBOPTION:
                self.suboption += byte

    def _telnet_received(self, command: bytes) -> None:
        if command in (DO, DONT, WILL, WONT):
            self.telnet_command = command
            self.mode = M_NEGOTIATE
        elif command == SB:
            self.suboption = bytearray()
        elif command == SE:
            said, self.suboption = self.suboption, None
            self._telnet_process_subnegotiation(bytes(said or b""))
        else:
            self._telnet_process_command(command)

    # A program may have these four in a class of its own, to do more at a request.

    def _telnet_process_command(self, command: bytes) -> None:
        self._tell("warning", "ignoring Telnet command: %r", command)

    def _telnet_negotiate_option(self, command: Any, option: bytes) -> None:
        known = [item for item in self._telnet_options if item.option == option]
        for item in known:
            item.process_incoming(command)
        if not known and command in (WILL, DO):
            self.telnet_send_option(DONT if command == WILL else WONT, option)
            self._tell("warning", "rejected Telnet option: %r", option)

    def _telnet_process_subnegotiation(self, suboption: bytes) -> None:
        option, request, value = suboption[:1], suboption[1:2], suboption[2:]
        if option != COM_PORT_OPTION:
            self._tell("warning", "unknown subnegotiation: %r", suboption)
        elif request in _SETTINGS:
            self._set(request, value)
        elif request == SET_CONTROL:
            self._control(value[:1])
        elif not self._other(request, value):
            self._tell("error", "undefined COM_PORT_OPTION: %r", list(suboption[1:]))

    # ---- What the client asks of the port. What the port refuses stays; the answer is what it has then. ----

    def _try(self, what: str, change: Callable[[], None]) -> None:
        try:
            change()
            self._tell("info", "%s", what)
        except (ValueError, OSError) as error:
            if not self.serial.is_open:
                raise
            self._tell("error", "%s failed: %s", what, error)

    def _set(self, request: bytes, value: bytes) -> None:
        name, size, known = _SETTINGS[request]
        asked = int.from_bytes(value[:size], "big")  # 0 only asks
        wanted = {code: setting for setting, code in known.items()}.get(asked) if known else asked
        if wanted:
            self._try(f"set {name}: {wanted}", lambda: setattr(self.serial, name, wanted))
        now = getattr(self.serial, name)
        self.rfc2217_send_subnegotiation(RFC2217_ANSWER_MAP[request], known.get(now, now).to_bytes(size, "big"))

    def _control(self, code: bytes) -> None:
        if code in SWITCHES:
            name, on = SWITCHES[code]
            self._try(f"set {name}: {on}", lambda: setattr(self.serial, name, on))
            answer = code
        elif code in _ASKED:
            name, off_code, on_code = _ASKED[code]
            answer = on_code if getattr(self.serial, name) else off_code
        else:
            if code in FLOWS:
                self._try(f"set flow control: {FLOWS[code]}", lambda: codes.set_flow(self.serial, code))
            answer = self._flow_control(inbound=code in _INBOUND)
        self.rfc2217_send_subnegotiation(codes.SERVER_SET_CONTROL, answer)

    def _flow_control(self, inbound: bool) -> bytes:
        """The code of what the port has: one setting for both directions."""
        now = 2 if self.serial.xonxoff else 3 if self.serial.rtscts else 1
        return bytes([now + _TO_INBOUND if inbound else now])

    def _other(self, request: bytes, value: bytes) -> bool:
        answer = RFC2217_ANSWER_MAP.get(request, b"")
        if request == codes.NOTIFY_MODEMSTATE:
            self.check_modem_lines(force_notification=True)
        elif request == codes.NOTIFY_LINESTATE:
            self.rfc2217_send_subnegotiation(answer, bytes([self._line_state()]))
        elif request in (codes.FLOWCONTROL_SUSPEND, codes.FLOWCONTROL_RESUME):
            self.suspended = request == codes.FLOWCONTROL_SUSPEND
        elif request == codes.SET_MODEMSTATE_MASK and value:
            self.modemstate_mask = value[0]
            self.rfc2217_send_subnegotiation(answer, value[:1])
        elif request == codes.SET_LINESTATE_MASK and value:
            self.linstate_mask = value[0]
            self.rfc2217_send_subnegotiation(answer, value[:1])
        elif request == codes.PURGE_DATA and b"\1" <= value[:1] <= b"\3":
            self._try(f"purge {value[0]}", lambda: codes.purge(self.serial, value[:1]))
            self.rfc2217_send_subnegotiation(answer, value[:1])
        else:
            return False
        return True

    def _line_state(self) -> int:
        """Which queues of the port are empty; errors are not counted here."""
        empty = codes.LINESTATE_MASK_TRANSREG_EMPTY | codes.LINESTATE_MASK_SHIFTREG_EMPTY
        try:
            sent = empty if not self.serial.out_waiting else 0
            return sent | (codes.LINESTATE_MASK_DATA_READY if self.serial.in_waiting else 0)
        except SerialException:
            return 0

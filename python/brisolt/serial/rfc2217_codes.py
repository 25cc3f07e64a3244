"""The numbers of telnet and of its com-port option, under the names that programs know them by."""

from __future__ import annotations

from .serialutil import (
    PARITY_EVEN, PARITY_MARK, PARITY_NONE, PARITY_ODD, PARITY_SPACE, STOPBITS_ONE, STOPBITS_ONE_POINT_FIVE,
    STOPBITS_TWO, SerialException,
)  # fmt: skip

TYPE_CHECKING = False
if TYPE_CHECKING:
    from collections.abc import Iterator
    from typing import Any


def _bytes_from(first: int, count: int) -> Iterator[bytes]:
    return (bytes([code]) for code in range(first, first + count))


def _bits(count: int) -> Iterator[int]:
    return (1 << bit for bit in range(count))


# ---- Telnet: what follows IAC, and options ----

(SE, NOP, DM, BRK, IP, AO, AYT, EC, EL, GA, SB, WILL, WONT, DO, DONT, IAC) = _bytes_from(0xF0, 16)
IAC_DOUBLED = IAC + IAC

BINARY, ECHO, SGA, COM_PORT_OPTION = b"\x00", b"\x01", b"\x03", b"\x2c"

# ---- The com-port option: what the client says, and what the server does ----

(
    SET_BAUDRATE, SET_DATASIZE, SET_PARITY, SET_STOPSIZE, SET_CONTROL, NOTIFY_LINESTATE, NOTIFY_MODEMSTATE,
    FLOWCONTROL_SUSPEND, FLOWCONTROL_RESUME, SET_LINESTATE_MASK, SET_MODEMSTATE_MASK, PURGE_DATA,
) = _bytes_from(1, 12)  # fmt: skip
(
    SERVER_SET_BAUDRATE, SERVER_SET_DATASIZE, SERVER_SET_PARITY, SERVER_SET_STOPSIZE, SERVER_SET_CONTROL,
    SERVER_NOTIFY_LINESTATE, SERVER_NOTIFY_MODEMSTATE, SERVER_FLOWCONTROL_SUSPEND, SERVER_FLOWCONTROL_RESUME,
    SERVER_SET_LINESTATE_MASK, SERVER_SET_MODEMSTATE_MASK, SERVER_PURGE_DATA,
) = _bytes_from(101, 12)  # fmt: skip
RFC2217_ANSWER_MAP = dict(zip(_bytes_from(1, 12), _bytes_from(101, 12)))

(
    SET_CONTROL_REQ_FLOW_SETTING, SET_CONTROL_USE_NO_FLOW_CONTROL, SET_CONTROL_USE_SW_FLOW_CONTROL,
    SET_CONTROL_USE_HW_FLOW_CONTROL, SET_CONTROL_REQ_BREAK_STATE, SET_CONTROL_BREAK_ON, SET_CONTROL_BREAK_OFF,
    SET_CONTROL_REQ_DTR, SET_CONTROL_DTR_ON, SET_CONTROL_DTR_OFF, SET_CONTROL_REQ_RTS, SET_CONTROL_RTS_ON,
    SET_CONTROL_RTS_OFF, SET_CONTROL_REQ_FLOW_SETTING_IN, SET_CONTROL_USE_NO_FLOW_CONTROL_IN,
    SET_CONTROL_USE_SW_FLOW_CONTOL_IN, SET_CONTROL_USE_HW_FLOW_CONTOL_IN, SET_CONTROL_USE_DCD_FLOW_CONTROL,
    SET_CONTROL_USE_DTR_FLOW_CONTROL, SET_CONTROL_USE_DSR_FLOW_CONTROL,
) = _bytes_from(0, 20)  # fmt: skip

(
    LINESTATE_MASK_DATA_READY, LINESTATE_MASK_OVERRUN_ERROR, LINESTATE_MASK_PARTIY_ERROR,
    LINESTATE_MASK_FRAMING_ERROR, LINESTATE_MASK_BREAK_DETECT, LINESTATE_MASK_TRANSREG_EMPTY,
    LINESTATE_MASK_SHIFTREG_EMPTY, LINESTATE_MASK_TIMEOUT,
) = _bits(8)  # fmt: skip
(
    MODEMSTATE_MASK_CTS_CHANGE, MODEMSTATE_MASK_DSR_CHANGE, MODEMSTATE_MASK_RI_CHANGE, MODEMSTATE_MASK_CD_CHANGE,
    MODEMSTATE_MASK_CTS, MODEMSTATE_MASK_DSR, MODEMSTATE_MASK_RI, MODEMSTATE_MASK_CD,
) = _bits(8)  # fmt: skip

PURGE_RECEIVE_BUFFER, PURGE_TRANSMIT_BUFFER, PURGE_BOTH_BUFFERS = _bytes_from(1, 3)

RFC2217_PARITY_MAP: dict[str, int] = {
    PARITY_NONE: 1, PARITY_ODD: 2, PARITY_EVEN: 3, PARITY_MARK: 4, PARITY_SPACE: 5,
}  # fmt: skip
RFC2217_REVERSE_PARITY_MAP = {code: parity for parity, code in RFC2217_PARITY_MAP.items()}
RFC2217_STOPBIT_MAP: dict[float, int] = {STOPBITS_ONE: 1, STOPBITS_TWO: 2, STOPBITS_ONE_POINT_FIVE: 3}
RFC2217_REVERSE_STOPBIT_MAP = {code: bits for bits, code in RFC2217_STOPBIT_MAP.items()}

# ---- What both sides do at such a code ----

#: The property of a port that a code switches, and how.
SWITCHES: dict[bytes, tuple[str, bool]] = {
    SET_CONTROL_BREAK_ON: ("break_condition", True), SET_CONTROL_BREAK_OFF: ("break_condition", False),
    SET_CONTROL_DTR_ON: ("dtr", True), SET_CONTROL_DTR_OFF: ("dtr", False),
    SET_CONTROL_RTS_ON: ("rts", True), SET_CONTROL_RTS_OFF: ("rts", False),
}  # fmt: skip

#: xonxoff and rtscts of a port for a code.
FLOWS: dict[bytes, tuple[bool, bool]] = {
    SET_CONTROL_USE_NO_FLOW_CONTROL: (False, False), SET_CONTROL_USE_SW_FLOW_CONTROL: (True, False),
    SET_CONTROL_USE_HW_FLOW_CONTROL: (False, True),
}  # fmt: skip


def set_flow(port: Any, code: bytes) -> None:
    """Gives a port the flow control of a code; what it has already it is not asked for again."""
    for name, on in zip(("xonxoff", "rtscts"), FLOWS[code]):
        if bool(getattr(port, name)) != on:
            setattr(port, name, on)


def purge(port: Any, what: bytes) -> None:
    """Drops what a port has received, what it has still to send, or both."""
    if what in (PURGE_RECEIVE_BUFFER, PURGE_BOTH_BUFFERS):
        port.reset_input_buffer()
    if what in (PURGE_TRANSMIT_BUFFER, PURGE_BOTH_BUFFERS):
        port.reset_output_buffer()


def modem_state(port: Any) -> int:
    """The inputs of a port. A device without lines has those that programs wait for, as a network line does."""
    try:
        return (
            (MODEMSTATE_MASK_CTS if port.cts else 0)
            | (MODEMSTATE_MASK_DSR if port.dsr else 0)
            | (MODEMSTATE_MASK_RI if port.ri else 0)
            | (MODEMSTATE_MASK_CD if port.cd else 0)
        )
    except SerialException:
        raise
    except OSError:
        return MODEMSTATE_MASK_CTS | MODEMSTATE_MASK_DSR | MODEMSTATE_MASK_CD

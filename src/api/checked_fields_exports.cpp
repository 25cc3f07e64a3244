// Single fields of a port's parameters. Each setter changes its field alone, so that of two threads that
// change different fields of a port neither undoes the other's change.
#include <cstring>

#include "api/border.h"
#include "brisolt/checked.h"
#include "modem/modem_commands.h"
#include "params/parameter_records.h"

using namespace brisolt;
using modem::command;

namespace {

template <auto Field> int32_t numberOf(int32_t port) noexcept {
    return onPort(port, -1, [](Port& open) { return (open.record->*Field).load(); });
}

/// Of the line's parameters: the framing goes to the device again.
template <auto Field> int32_t setOfLine(int32_t port, int32_t value) noexcept {
    return onPort(port, -1, [=](Port& open) { return setPortNumber(open, Field, value); });
}

/// Of the parameters that concern no device.
template <auto Field> int32_t setPlain(int32_t port, int32_t value) noexcept {
    return onPort(port, -1, [=](Port& open) {
        open.record->*Field = value;
        return 1;
    });
}

template <auto Field> int32_t textOf(int32_t port, char* buffer) noexcept {
    if (buffer == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        modem::CommandText copy = modem::textOf(open, command<Field>);
        std::memset(buffer, 0, command<Field>.size);
        std::memcpy(buffer, copy.text, std::strlen(copy.text));
        return 1;
    });
}

template <auto Field> int32_t setText(int32_t port, const char* text) noexcept {
    if (text == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        modem::setText(open, command<Field>, text);
        return 1;
    });
}

} // namespace

#define GETTER(getter, field)                      \
    BRISOLT_EXPORT int32_t getter(int32_t port) {  \
        return numberOf<&PortRecord::field>(port); \
    }
#define SETTER(setter, set)                                      \
    BRISOLT_EXPORT int32_t setter(int32_t port, int32_t value) { \
        return set(port, value);                                 \
    }
#define LINE(getter, setter, field) \
    GETTER(getter, field)           \
    SETTER(setter, setOfLine<&PortRecord::field>)
#define PLAIN(getter, setter, field) \
    GETTER(getter, field)            \
    SETTER(setter, setPlain<&PortRecord::field>)
#define TEXT(getter, setter, field)                                 \
    BRISOLT_EXPORT int32_t getter(int32_t port, char* buffer) {     \
        return textOf<&PortRecord::field>(port, buffer);            \
    }                                                               \
    BRISOLT_EXPORT int32_t setter(int32_t port, const char* text) { \
        return setText<&PortRecord::field>(port, text);             \
    }

LINE(CGetPortParmBaudrate, CSetPortParmBaud, baudRate)
LINE(CGetPortParmParity, CSetPortParmParity, parityCode)
LINE(CGetPortParmData_bits, CSetPortParmData_bits, dataBits)
LINE(CGetPortParmStop_bits, CSetPortParmStop_bits, stopCode)
LINE(CGetPortParmXflow, CSetPortParmXflow, xonXoff)
GETTER(CGetPortParmIbuf, rxBufSize)
GETTER(CGetPortParmObuf, txBufSize)
LINE(CGetPortParmFlushTime, ComFlushTime, flushDelay)
LINE(CGetPortParmBreakTime, CSetPortParmBreakTime, breakTime)
LINE(CGetPortParmDTRTime, CSetPortParmDTRTime, dtrPulseTime)
LINE(CGetPortParmYield, CSetPortParmYield, yield)

PLAIN(CGetModemParmDialTime, CSetModemParmDialTime, dialTimeout)
TEXT(CGetModemParmDialStr, CSetModemParmDialStr, dialStr)
TEXT(CGetModemInitStr, CSetModemInitStr, initStr)
TEXT(CGetModemParmDiscStr, CSetModemParmDiscStr, discStr)
TEXT(CGetModemParmResetStr, CSetModemParmResetStr, resetStr)
TEXT(CGetModemParmSetAA, CSetModemParmSetAA, setAAStr)
TEXT(CGetModemParmUnsetAA, CSetModemParmUnsetAA, unsetAAStr)
TEXT(CGetModemParmCompression_ON, CSetModemParmCompression_ON, compressionOnStr)
TEXT(CGetModemParmCompression_OFF, CSetModemParmCompression_OFF, compressionOffStr)
TEXT(CGetModemParmFlowControl_OFF, CSetModemParmFlowControl_OFF, flowControlOffStr)
TEXT(CGetModemParmFlowControl_HDWR, CSetModemParmFlowControl_HDWR, flowControlHdwrStr)
TEXT(CGetModemParmFlowControl_SOFT, CSetModemParmFlowControl_SOFT, flowControlSoftStr)
TEXT(CGetModemParmErrorControl_ON, CSetModemParmErrorControl_ON, errorControlOnStr)
TEXT(CGetModemParmErrorControl_OFF, CSetModemParmErrorControl_OFF, errorControlOffStr)
TEXT(CGetModemParmErrorControl_FORCED, CSetModemParmErrorControl_FORCED, errorControlForcedStr)

PLAIN(CGetAsciiParmStripLF, CSetAsciiParmStripLF, stripLF)
PLAIN(CGetAsciiParmAddCR, CSetAsciiParmAddCR, addCR)
PLAIN(CGetAsciiParmCharDelay, CSetAsciiParmCharDelay, charDelay)
PLAIN(CGetAsciiParmLineDelay, CSetAsciiParmLineDelay, lineDelay)

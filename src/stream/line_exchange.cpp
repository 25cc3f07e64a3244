#include "stream/line_exchange.h"

#include <cstdlib>

#include "platform/error_text.h"
#include "platform/mutex.h"
#include "port/device_setup.h"
#include "port/flow.h"
#include "port/framing_text.h"

namespace brisolt {

namespace {

constexpr int32_t deviceGone = -2;
constexpr int32_t refused = -4;
constexpr uint8_t deviceStopBits[] = {COM_HOST_STOP_1, COM_HOST_STOP_2, COM_HOST_STOP_1_5};

/// A device that is looked for is no failure: what it was set to is remembered, and set when it is back.
bool isThere(const Port& port) noexcept {
    return port.device.state() != COM_HOST_DEVICE_GONE;
}

Framing framingOf(const ComHostLineState& state) noexcept {
    int32_t stop = state.stopBits == COM_HOST_STOP_1 ? 1 : state.stopBits == COM_HOST_STOP_2 ? 2 : 3;
    return {.dataBits = state.dataBits, .parity = state.parity + 1, .stopBits = stop};
}

constexpr uint32_t rtsCts = COM_HOST_LINE_CTS_OUTPUT | COM_HOST_LINE_RTS_HANDSHAKE;
constexpr uint32_t dtrDsr = COM_HOST_LINE_DSR_OUTPUT | COM_HOST_LINE_DTR_HANDSHAKE;
constexpr uint32_t xonXoff = COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT;
constexpr uint32_t flowFlags = rtsCts | dtrDsr | xonXoff;

std::string flowText(const ComHostLineState& state) {
    std::string text;
    const auto add = [&](uint32_t flags, const char* name) {
        if ((state.flags & flags) != 0)
            text += (text.empty() ? "" : " with ") + std::string(name);
    };
    add(rtsCts, "RTS/CTS");
    add(dtrDsr, "DTR/DSR");
    add(xonXoff, "XON/XOFF");
    return text.empty() ? "none" : text;
}

bool runsAs(const ComHostLineState& wanted, const ComHostLineState& real) noexcept {
    return !rateIsOff(wanted.baudRate, real.baudRate) && wanted.dataBits == real.dataBits &&
           wanted.parity == real.parity && wanted.stopBits == real.stopBits &&
           (wanted.flags & flowFlags) == (real.flags & flowFlags);
}

/// What is not asked for stays; the lines, too, where no handshake moves them.
void ask(ComHostLineState& state, int32_t baudRate, const Framing* framing, int32_t flow,
         uint32_t outputs) noexcept {
    if (baudRate != 0)
        state.baudRate = static_cast<uint32_t>(baudRate);
    if (framing != nullptr) {
        state.dataBits = static_cast<uint8_t>(framing->dataBits);
        state.parity = static_cast<uint8_t>(framing->parity - 1);
        state.stopBits = deviceStopBits[framing->stopBits - 1];
    }
    if (flow >= 0)
        state.flags = withFlow(state.flags, flow, outputs);
}

ComHostLineState withOutputs(ComHostLineState state, uint32_t outputs) noexcept {
    auto drive = [&state, outputs](uint32_t line, uint32_t on) {
        if ((outputs & line) == 0)
            state.flags &= ~on;
    };
    drive(COM_HOST_MODEM_DTR, COM_HOST_LINE_DTR_ON);
    drive(COM_HOST_MODEM_RTS, COM_HOST_LINE_RTS_ON);
    return state;
}

void record(Port& port, const ComHostLineState& state, int32_t flow) noexcept {
    PortRecord& record = *port.record;
    Framing framing = framingOf(state);
    record.lineState = state;
    record.baudRate = static_cast<int32_t>(state.baudRate);
    record.dataBits = framing.dataBits;
    record.parityCode = framing.parity;
    record.stopCode = framing.stopBits;
    if (flow >= 0)
        record.xonXoff = xonXoffCode(flow);
}

} // namespace

int32_t setLine(Port& port, int32_t baudRate, const char* framing, int32_t flow) {
    Framing wantedFraming;
    if (int32_t code = readFraming(framing, wantedFraming); code < 0)
        return code;
    if (baudRate < 0 || flow < -1 || flow >= flowModes || !port.hasDevice())
        return -1;
    if (!isThere(port))
        return deviceGone;
    MutexLock guard(port.lineMutex); // no other change of the line is undone
    ComHostLineState before{}, real{};
    if (!port.device.getLineState(before))
        return isThere(port) ? refused : deviceGone;
    ComHostLineState wanted = before;
    uint32_t outputs = port.device.outputs();
    ask(wanted, baudRate, framing != nullptr ? &wantedFraming : nullptr, flow, outputs);
    bool taken = port.device.setLineState(wanted) && port.device.getLineState(real);
    if (taken && runsAs(wanted, real)) {
        record(port, real, flow);
        return 1;
    }
    if (!isThere(port))
        return deviceGone;
    ComHostLineState inAllElse = wanted;
    inAllElse.flags = real.flags;
    if (taken && runsAs(inAllElse, real))
        setErrorText("the device has another flow control than is asked for, " + flowText(real) +
                     " and not " + flowText(wanted));
    else if (taken)
        setErrorText("the device runs at " + std::to_string(real.baudRate) + " " +
                     framingText(framingOf(real)) + " when " + std::to_string(wanted.baudRate) + " " +
                     framingText(framingOf(wanted)) + " is asked for");
    port.device.setLineState(withOutputs(before, outputs));
    return refused;
}

int32_t getLine(Port& port, ComHostLineState& state) {
    if (!port.hasDevice())
        return -1;
    if (!isThere(port))
        return deviceGone;
    return port.device.getLineState(state) ? 1 : isThere(port) ? -1 : deviceGone;
}

int32_t getLines(Port& port) {
    if (!port.hasDevice())
        return refused;
    if (!isThere(port))
        return deviceGone;
    uint32_t lines = 0;
    if (!port.device.modemStatus(lines))
        return isThere(port) ? refused : deviceGone;
    return static_cast<int32_t>(lines | port.device.outputs());
}

} // namespace brisolt

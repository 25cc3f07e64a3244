#include "port/flow.h"
#include "platform/mutex.h"

#include <array>

namespace brisolt {

namespace {

constexpr uint32_t flowFlags = COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT | COM_HOST_LINE_CTS_OUTPUT |
                               COM_HOST_LINE_DSR_OUTPUT | COM_HOST_LINE_DTR_ON | COM_HOST_LINE_DTR_HANDSHAKE |
                               COM_HOST_LINE_RTS_ON | COM_HOST_LINE_RTS_HANDSHAKE;
constexpr uint32_t xonXoff = COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT;
constexpr uint32_t cts = COM_HOST_LINE_CTS_OUTPUT;
constexpr uint32_t dsr = COM_HOST_LINE_DSR_OUTPUT;
constexpr uint32_t dtrOn = COM_HOST_LINE_DTR_ON;
constexpr uint32_t dtrShake = COM_HOST_LINE_DTR_HANDSHAKE;
constexpr uint32_t rtsOn = COM_HOST_LINE_RTS_ON;
constexpr uint32_t rtsShake = COM_HOST_LINE_RTS_HANDSHAKE;
constexpr uint32_t bothOutputs = COM_HOST_MODEM_DTR | COM_HOST_MODEM_RTS;

struct FlowMode {
    uint32_t flags;
    int32_t xonXoffCode;
};
constexpr std::array<FlowMode, flowModes> modes{{
    {cts | dtrOn | rtsShake, 0},           // RTS/CTS
    {xonXoff | dtrOn | rtsOn, 1},          // XON/XOFF
    {dtrOn | rtsOn, 0},                    // none
    {dsr | dtrShake | rtsOn, 0},           // DTR/DSR
    {cts | dsr | dtrShake | rtsShake, 0},  // both pairs
    {xonXoff | dsr | dtrShake | rtsOn, 1}, // XON/XOFF with DTR/DSR
}};

} // namespace

uint32_t withFlow(uint32_t flags, int32_t mode, uint32_t outputs) noexcept {
    uint32_t wanted = modes[static_cast<std::size_t>(mode)].flags;
    if ((outputs & COM_HOST_MODEM_DTR) == 0)
        wanted &= ~dtrOn;
    if ((outputs & COM_HOST_MODEM_RTS) == 0)
        wanted &= ~rtsOn;
    return (flags & ~flowFlags) | wanted;
}

int32_t xonXoffCode(int32_t mode) noexcept {
    return modes[static_cast<std::size_t>(mode)].xonXoffCode;
}

namespace {

int32_t controlLine(Port& port, ComPortFunc driverFunction, uint32_t function) {
    if (driverFunction != nullptr)
        return driverFunction(port.number);
    if (!port.hasDevice())
        return -1;
    return port.device.line(function) ? 1 : -2;
}

/// From the state that the device really has; under one lock, so that no other change of the line is undone.
bool applyMode(Port& port, int32_t mode, uint32_t outputs) noexcept {
    MutexLock guard(port.lineMutex);
    ComHostLineState state{};
    bool readable = port.device.getLineState(state);
    if (mode < 0 || mode >= static_cast<int32_t>(modes.size()) || !port.hasDevice())
        return false;
    if (!readable)
        state = port.record->lineState;
    state.flags = withFlow(state.flags, mode, outputs);
    port.record->xonXoff = xonXoffCode(mode);
    port.device.purge(COM_HOST_PURGE_TX_ABORT | COM_HOST_PURGE_RX_ABORT | COM_HOST_PURGE_TX |
                      COM_HOST_PURGE_RX);
    port.device.setLineState(state);
    port.record->lineState = state;
    return true;
}

} // namespace

int32_t setFlow(Port& port, int32_t mode) {
    if (!port.isOpen())
        return -1;
    if (ComPortValueFunc function = port.record->setFlowFunc)
        return function(port.number, mode);
    if (!applyMode(port, mode, bothOutputs))
        return -1;
    if (port.ending())
        return 1; // the close has lowered them, and they stay low
    setDtr(port);
    setRts(port);
    return 1;
}

void setQuietFlow(Port& port, int32_t mode) noexcept {
    applyMode(port, mode, port.device.outputs());
}

int32_t setDtr(Port& port) {
    return controlLine(port, port.record->setDtrFunc, COM_HOST_LINE_SET_DTR);
}

int32_t clearDtr(Port& port) {
    return controlLine(port, port.record->clearDtrFunc, COM_HOST_LINE_CLEAR_DTR);
}

int32_t setRts(Port& port) {
    return controlLine(port, port.record->setRtsFunc, COM_HOST_LINE_SET_RTS);
}

int32_t clearRts(Port& port) {
    return controlLine(port, port.record->clearRtsFunc, COM_HOST_LINE_CLEAR_RTS);
}

} // namespace brisolt

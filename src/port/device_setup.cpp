#include "port/device_setup.h"

#include "platform/clock.h"
#include "platform/error_text.h"
#include "port/trace.h"

namespace brisolt {

namespace {

constexpr uint32_t watchedEvents =
    COM_HOST_EVENT_CTS | COM_HOST_EVENT_CARRIER | COM_HOST_EVENT_BREAK | COM_HOST_EVENT_RING;

/// A refusal: ComOpen tells why in the trace, ComPreOpen keeps silent.
int32_t refused(Port& port, Opened opened, int32_t code, const char* text) noexcept {
    if (opened == Opened::own)
        trace(port, "%s", text);
    return code;
}
int32_t refusedSetting(Port& port, Opened opened, int32_t code, const char* what, int32_t value) noexcept {
    if (opened == Opened::own)
        trace(port, "Bad %s Setting %d - Aborting", what, value);
    return code;
}

// An own device reads at once what is there and writes for two seconds at most; an adopted one is left to
// wait without limit, as its owner may need.
ComHostTimeouts startTimeouts(Opened opened) noexcept {
    bool own = opened == Opened::own;
    return {.size = sizeof(ComHostTimeouts),
            .readInterval = own ? UINT32_MAX : 0,
            .readMultiplier = 0,
            .readConstant = 0,
            .writeMultiplier = 0,
            .writeConstant = own ? 2000U : UINT32_MAX};
}

void setFlag(ComHostLineState& state, uint32_t flag, bool on) noexcept {
    state.flags = on ? state.flags | flag : state.flags & ~flag;
}

int32_t applyParity(Port& port, const OpenArguments& arguments, Opened opened, uint32_t capabilities,
                    ComHostLineState& state) noexcept {
    bool checks = (capabilities & COM_HOST_CAN_PARITY_CHECK) != 0;
    if (opened == Opened::adopted && !checks)
        return 0;
    if (arguments.parity < 1 || arguments.parity > 5)
        return refusedSetting(port, opened, -33, "Parity", arguments.parity);
    state.parity = static_cast<uint8_t>(arguments.parity - 1);
    setFlag(state, COM_HOST_LINE_PARITY_CHECK, arguments.parity != 1);
    return 0;
}

int32_t applyDataBits(Port& port, const OpenArguments& arguments, Opened opened,
                      ComHostLineState& state) noexcept {
    if (arguments.dataBits < 4 || arguments.dataBits > 8)
        return refusedSetting(port, opened, -34, "data-bit", arguments.dataBits);
    if (opened == Opened::adopted && arguments.dataBits == 8 && arguments.parity != 1)
        return -34;
    state.dataBits = static_cast<uint8_t>(arguments.dataBits);
    return 0;
}

int32_t applyStopBits(Port& port, const OpenArguments& arguments, Opened opened,
                      ComHostLineState& state) noexcept {
    switch (arguments.stopBits) {
    case 1: state.stopBits = COM_HOST_STOP_1; return 0;
    case 2: state.stopBits = COM_HOST_STOP_2; return 0;
    case 3: state.stopBits = COM_HOST_STOP_1_5; return 0;
    default: return refusedSetting(port, opened, -35, "stop-bit", arguments.stopBits);
    }
}

} // namespace

void setStartFlags(ComHostLineState& state, Opened opened, const DeviceOptions& options) noexcept {
    constexpr uint32_t off = COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT | COM_HOST_LINE_CTS_OUTPUT |
                             COM_HOST_LINE_DSR_OUTPUT | COM_HOST_LINE_DTR_HANDSHAKE |
                             COM_HOST_LINE_RTS_HANDSHAKE | COM_HOST_LINE_DSR_SENSITIVITY |
                             COM_HOST_LINE_SEND_AFTER_XOFF | COM_HOST_LINE_ERROR_REPLACE |
                             COM_HOST_LINE_NULL_STRIP | COM_HOST_LINE_RTS_ON;
    uint32_t found = state.flags;
    state.flags = (state.flags & ~off) | COM_HOST_LINE_DTR_ON;
    setFlag(state, COM_HOST_LINE_RTS_ON, opened == Opened::own);
    applyLineStart(state.flags, found, options);
    state.xoffLimit = startMaxWriteChars * 3 / 4;
    state.xonLimit = startMaxWriteChars / 4;
    state.xonChar = 0x11;
    state.xoffChar = 0x13;
    state.errorChar = 0;
    state.eofChar = 0x1A;
    state.eventChar = 0;
}

int32_t readProperties(Port& port, Opened opened, ComHostProperties& properties) noexcept {
    bool read = port.device.properties(properties);
    trace(port, "Port Properties: follows");
    trace(port, "Packet Length: %d", static_cast<int32_t>(properties.packetLength));
    trace(port, "Packet Version: %d", static_cast<int32_t>(properties.packetVersion));
    trace(port, "Service Mask: %d", static_cast<int32_t>(properties.serviceMask));
    trace(port, "Max Tx Queue: %d", static_cast<int32_t>(properties.maxTxQueue));
    trace(port, "Max Rx Queue: %d", static_cast<int32_t>(properties.maxRxQueue));
    trace(port, "Max Baud: %d", static_cast<int32_t>(properties.maxBaud));
    trace(port, "Prov Sub Type: %d", static_cast<int32_t>(properties.provSubType));
    trace(port, "Prov Capabilities: %x", properties.provCapabilities);
    trace(port, "Settable Params: %x", properties.settableParams);
    trace(port, "Settable Baud: %d", static_cast<int32_t>(properties.settableBaud));
    trace(port, "Max Rx Queue: %d", static_cast<int32_t>(properties.maxRxQueue));
    if (read)
        return 0;
    if (opened == Opened::adopted)
        return -26;
    trace(port, "GetCommProperties Failed: %d  Continuing", 0);
    return 0;
}

int32_t setUpQueues(Port& port, Opened opened) noexcept {
    PortRecord& record = *port.record;
    const Device& device = port.device;
    bool masked = (opened == Opened::own || device.setEventMask(0)) && device.setEventMask(watchedEvents);
    if (!masked)
        return refused(port, opened, -27, "SetCommMask Failed - Aborting");
    port.threadWake = Wake::make();
    if (port.threadWake == nullptr) {
        setErrorTextFrom({"cannot open a port: the process has no descriptor or no memory left"});
        return refused(port, opened, -29, "CreateEvent Failed - Aborting");
    }
    record.maxWriteChars = startMaxWriteChars;
    if (!device.setQueues(startMaxWriteChars, startMaxWriteChars))
        return refused(port, opened, -30, "SetupComm Failed - Aborting");
    record.openTick = clock::ticks();
    record.device = device.handle();
    ComHostTimeouts timeouts{};
    if (opened == Opened::own)
        device.getTimeouts(timeouts);
    timeouts = startTimeouts(opened);
    if (!device.setTimeouts(timeouts))
        return refused(port, opened, -39, "SetCommTimeouts Failed - Aborting");
    return 0;
}

int32_t setUpLine(Port& port, const OpenArguments& arguments, Opened opened,
                  const ComHostProperties& properties) noexcept {
    const Device& device = port.device;
    device.purge(purgeHeld);
    ComHostLineState state{};
    state.size = sizeof state;
    device.getLineState(state);
    auto baud = static_cast<uint32_t>(arguments.baudRate);
    if (opened == Opened::adopted && baud > properties.maxBaud)
        return -32;
    state.baudRate = baud;
    setFlag(state, COM_HOST_LINE_BINARY, true);
    if (opened == Opened::own)
        setFlag(state, COM_HOST_LINE_PARITY_CHECK, true);
    if (int32_t code = applyParity(port, arguments, opened, properties.provCapabilities, state); code < 0)
        return code;
    if (int32_t code = applyDataBits(port, arguments, opened, state); code < 0)
        return code;
    if (int32_t code = applyStopBits(port, arguments, opened, state); code < 0)
        return code;
    setStartFlags(state, opened, device.options());
    device.purge(purgeAll);
    if (!device.setLineState(state)) {
        if (device.state() == COM_HOST_DEVICE_GONE)
            setErrorTextFrom({"cannot open a port: its device went away while it was set up"});
        return refused(port, opened, -36, "PurgeComm Failure - Aborting");
    }
    if (ComHostLineState applied{}; device.getLineState(applied))
        state = applied;
    port.setLineStateCopy(state);
    return 0;
}

void applyLineStart(uint32_t& flags, uint32_t found, const DeviceOptions& options) noexcept {
    auto apply = [&flags, found](LineStart start, uint32_t flag) {
        if (start == LineStart::lower || (start == LineStart::leave && (found & flag) == 0))
            flags &= ~flag;
        else if (start == LineStart::leave)
            flags |= flag;
    };
    apply(options.dtr, COM_HOST_LINE_DTR_ON);
    apply(options.rts, COM_HOST_LINE_RTS_ON);
}

namespace {

void startOutput(const Device& device, LineStart start, uint32_t raise, uint32_t lower, bool isHigh,
                 uint32_t line) noexcept {
    if (start != LineStart::leave)
        device.line(start == LineStart::raise ? raise : lower);
    else if (isHigh)
        device.assumeOutputs(line);
}

} // namespace

void startLine(Port& port) noexcept {
    port.device.purge(purgeHeld);
    const DeviceOptions& options = port.device.options();
    uint32_t flags = port.lineStateCopy().flags;
    startOutput(port.device, options.dtr, COM_HOST_LINE_SET_DTR, COM_HOST_LINE_CLEAR_DTR,
                (flags & COM_HOST_LINE_DTR_ON) != 0, COM_HOST_MODEM_DTR);
    startOutput(port.device, options.rts, COM_HOST_LINE_SET_RTS, COM_HOST_LINE_CLEAR_RTS,
                (flags & COM_HOST_LINE_RTS_ON) != 0, COM_HOST_MODEM_RTS);
    port.device.setEventMask(0);
}

} // namespace brisolt

#include "telephony/telephony_port.h"

#include <cerrno>

#include "platform/clock.h"
#include "port/device_setup.h"
#include "port/opening.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

namespace {

constexpr uint32_t ringSize = 16384;
constexpr int32_t noMemory = -20;

int32_t refused(int32_t code, const char* text) noexcept {
    log("%s", text);
    return code;
}

/// Event mask, wake, queues and time-outs; only the last two can be refused for good.
int32_t setUpQueues(Port& port) {
    Device& device = port.device;
    PortRecord& record = *port.record;
    if (!device.setEventMask(0))
        log("TAPI_OPENPORT Set Mask Failure: RTC:%d Error:%d", 0, errno);
    port.threadWake = Wake::make();
    if (port.threadWake == nullptr)
        log("CreateEvent failure");
    record.maxWriteChars = startMaxWriteChars;
    if (!device.setQueues(startMaxWriteChars, startMaxWriteChars))
        return refused(-30, "SetupComm failure");
    record.openTick = clock::ticks();
    record.device = device.handle();
    constexpr ComHostTimeouts withoutLimit{.size = sizeof(ComHostTimeouts),
                                           .readInterval = 0,
                                           .readMultiplier = 0,
                                           .readConstant = 0,
                                           .writeMultiplier = 0,
                                           .writeConstant = UINT32_MAX};
    return device.setTimeouts(withoutLimit) ? 0 : refused(-39, "SetCommTimeouts failure");
}

/// The framing that the modems have agreed on is the device's; the record only tells it.
int32_t takeFraming(PortRecord& record, ComHostLineState& state) {
    record.baudRate = static_cast<int32_t>(state.baudRate);
    if (state.parity > COM_HOST_PARITY_SPACE) {
        log("TAPI_OPENPORT: Parity invalid:%d", state.parity);
        return -33;
    }
    record.parityCode = state.parity + 1;
    if (state.parity == COM_HOST_PARITY_NONE)
        state.flags &= ~uint32_t{COM_HOST_LINE_PARITY_CHECK};
    if (state.dataBits < 4 || state.dataBits > 8) {
        log("databits invalid:%d", state.dataBits);
        return -34;
    }
    record.dataBits = state.dataBits;
    switch (state.stopBits) {
    case COM_HOST_STOP_1: record.stopCode = 1; return 0;
    case COM_HOST_STOP_2: record.stopCode = 2; return 0;
    case COM_HOST_STOP_1_5: record.stopCode = 3; return 0;
    default: log("StopBits invalid:%d", state.stopBits); return -35;
    }
}

int32_t setUpLine(Port& port) {
    Device& device = port.device;
    device.purge(purgeHeld);
    ComHostLineState state{};
    state.size = sizeof state;
    state.dataBits = 8; // of a device that does not tell
    device.getLineState(state);
    if (int32_t code = takeFraming(*port.record, state); code < 0)
        return code;
    setStartFlags(state, Opened::adopted);
    state.flags |= COM_HOST_LINE_BINARY;
    device.purge(purgeAll);
    if (!device.setLineState(state))
        return refused(-36, "SetCommState Failure");
    device.getLineState(state);
    port.setLineStateCopy(state);
    return 0;
}

} // namespace

int32_t openTelephonyPort(int32_t number, int32_t handle, Held held) noexcept try {
    Opening opening(number, ringSize, ringSize);
    if (opening.code() < 0)
        return opening.code();
    Port& port = opening.port();
    PortRecord& record = *port.record;
    log("Opening Port: %d Handle:%d ", number, handle);
    if (int32_t result = port.device.adopt(handle); result == -ENOMEM)
        return noMemory;
    else if (result < 0)
        return refused(-30, "SetupComm failure"); // no device, no queues
    if (held == Held::read)
        port.device.keepFirstBytes();
    if (int32_t code = setUpQueues(port); code < 0)
        return code;
    if (int32_t code = setUpLine(port); code < 0)
        return code;
    record.rxBufSize = record.txBufSize = static_cast<int32_t>(ringSize);
    setDefaults(record, number, "com", Opened::adopted);
    record.ioMode = ioThreaded;
    if (int32_t code = startPort(port); code < 0)
        return refused(code, "Create Thread Failure");
    port.device.setUpDone();
    log("TAPI_OPENPORT - SUCCESS: %d", number);
    return opening.succeed();
} catch (...) { // no memory
    return noMemory;
}

} // namespace brisolt::telephony

#include "stream/stream_settings.h"

#include <algorithm>

#include "platform/mutex.h"
#include "port/device_io.h"
#include "port/port_table.h"
#include "port/trace.h"
#include "port/waits.h"

namespace brisolt {

namespace {

/// A peer that was told to stop may have been told so for bytes that are gone now.
void resumeIfXonXoff(Port& port) noexcept {
    int32_t flow = port.record->xonXoff;
    if (flow == 1 || flow == 5)
        port.device.line(COM_HOST_LINE_RESUME);
}

} // namespace

int32_t flushReceived(Port& port, int32_t seconds) {
    if (!port.isOpen())
        return -1;
    if (ComPortFunc function = port.record->flushFunc)
        return function(port.number);
    if (port.rx.storage == nullptr)
        return -1;
    yieldPause(port, static_cast<uint32_t>(std::clamp<int64_t>(seconds, 0, UINT32_MAX / 1000) * 1000));
    if (port.ending())
        return -1;
    HeldLock lock(port);
    trace(port, "ComFlush called HWM:%d LWM:%d", port.record->rxHead.load(), port.record->rxTail.load());
    port.rx.clear();
    port.device.purge(COM_HOST_PURGE_RX);
    resumeIfXonXoff(port);
    port.rxStalled = 0;
    port.wakeThread();
    return 1;
}

int32_t flushUnsent(Port& port) {
    if (!port.isOpen())
        return -1;
    if (ComPortFunc function = port.record->flushOutBufFunc)
        return function(port.number);
    if (port.tx.storage == nullptr)
        return -1;
    HeldLock lock(port);
    HeldSend send(port);
    port.tx.clear();
    port.device.purge(COM_HOST_PURGE_TX);
    resumeIfXonXoff(port);
    return 1;
}

int32_t flushDevice(Port& port) {
    return port.device.flush() ? 1 : 0;
}

int32_t setWriteTimeout(Port& port, uint32_t milliseconds) {
    ComHostTimeouts timeouts{.size = sizeof(ComHostTimeouts),
                             .readInterval = UINT32_MAX,
                             .readMultiplier = 0,
                             .readConstant = 0,
                             .writeMultiplier = 0,
                             .writeConstant = milliseconds};
    port.device.setTimeouts(timeouts);
    return 1;
}

int32_t setMaxWriteChars(Port& port, int32_t count) {
    port.record->maxWriteChars = std::clamp(count, 1, 1200);
    return 1;
}

int32_t setErrorReplacement(Port& port, int32_t enable, uint8_t replacement) {
    MutexLock guard(port.lineMutex); // a line change of another thread is not undone
    ComHostLineState state{};
    if (!port.device.getLineState(state))
        return -1;
    bool on = enable >= 1;
    constexpr uint32_t replace = COM_HOST_LINE_ERROR_REPLACE;
    state.flags = on ? state.flags | replace : state.flags & ~replace;
    state.errorChar = on ? replacement : uint8_t{0};
    return port.device.setLineState(state) ? 1 : -1;
}

// The device is asked once more: errors on a line that brings no bytes make no round.
int32_t takeLineErrors(Port& port) {
    statusRead(port);
    return static_cast<int32_t>(port.record->lineErrors.exchange(0));
}

int32_t setLossless(Port& port, bool on) {
    port.lossless = on ? 1 : 0;
    port.wakeThread();
    return 1;
}

} // namespace brisolt

// The exported functions that tell of lines, errors and devices.
#include "api/border.h"
#include "api/sized_records.h"
#include "brisolt_host.h"
#include "platform/message.h"
#include "platform/serial.h"
#include "stream/event_wait.h"
#include "stream/line_exchange.h"

using namespace brisolt;

namespace {

bool known(uint32_t events) noexcept {
    return events != 0 && (events & ~PortCounters::everyEvent) == 0;
}

/// Nobody, or somebody who is there.
bool mayBeTold(int32_t window, uint32_t thread) noexcept {
    if (window != 0)
        return message::windowExists(window);
    return thread == 0 || message::threadExists(thread);
}

} // namespace

BRISOLT_EXPORT int32_t ComHostGetCounters(int32_t port, ComHostCounters* counters) {
    constexpr std::size_t firstCounter = offsetof(ComHostCounters, dsr);
    if (!holdsAll(counters, firstCounter))
        return -1;
    return onPort(port, -1, [counters](Port& open) {
        fill(*counters, open.counters.now(open));
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComHostWaitEvent(int32_t port, uint32_t events, ComHostCounters* seen,
                                        int32_t milliseconds) {
    if (!known(events) || !holdsAll(seen))
        return -1;
    return onPort(port, -1, [&](Port& open) { return waitForEvent(open, events, *seen, milliseconds); });
}

BRISOLT_EXPORT int32_t ComHostSetEventMessage(int32_t port, uint32_t events, int32_t window,
                                              uint32_t thread) {
    bool nobody = window == 0 && thread == 0;
    if (!nobody && (!known(events) || !mayBeTold(window, thread)))
        return -1;
    return onPort(port, -1, [&](Port& open) {
        if (nobody)
            open.counters.endTarget(open);
        else
            open.counters.setTarget(open, events, window, thread);
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComHostGetLines(int32_t port) {
    return onPort(port, -1, getLines);
}

BRISOLT_EXPORT int32_t ComHostGetDeviceInfo(int32_t index, ComHostDeviceInfo* info) {
    constexpr std::size_t thePath = offsetof(ComHostDeviceInfo, stablePath);
    if (!holdsAll(info, thePath))
        return -1;
    return guarded(-1, {"cannot list the devices: no memory"}, [&] {
        ComHostDeviceInfo answer{};
        answer.size = sizeof answer;
        const int32_t result = serial::describe(index, answer);
        if (result == 1)
            fill(*info, answer);
        return result;
    });
}

BRISOLT_EXPORT int32_t ComHostSetDeviceMessage(int32_t window, uint32_t thread) {
    if (!mayBeTold(window, thread))
        return -1;
    return guarded(-1, [&] { return serial::tellOfDevices(window, thread) ? 1 : -1; });
}

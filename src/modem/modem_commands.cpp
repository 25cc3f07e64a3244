#include "modem/modem_commands.h"

#include <algorithm>
#include <cstring>

#include "platform/clock.h"
#include "port/port_table.h"
#include "port/waits.h"
#include "stream/line_status.h"
#include "stream/writing.h"

namespace brisolt::modem {

namespace {

constexpr uint32_t settleTime = 251; ///< milliseconds before and after a number
constexpr uint32_t carrierPace = 11; ///< milliseconds between looks: no device tells of its carrier

int32_t awaitCarrier(Port& port, const clock::Deadline& until) {
    for (;;) {
        uint32_t seen = port.events.count();
        if (stopped(port) || until.passed())
            return -1;
        if (carrier(port) > 0)
            return setCarrierLatch(port, true);
        if (checkEscape(port, port.record->escapeChar) == 1)
            return port.ending() ? -1 : 0;
        WaitFor what{.bytes = false, .messages = true, .quit = true};
        auto look = clock::Deadline::earlier(until, clock::Deadline::in(carrierPace));
        sleepOnPort(port, seen, what, nextLook(port, what, look));
    }
}

/// Milliseconds, however many seconds that are.
clock::Deadline deadlineIn(int32_t seconds) noexcept {
    int64_t milliseconds = int64_t{seconds} * 1000 + 10;
    return clock::Deadline::in(static_cast<uint32_t>(std::clamp<int64_t>(milliseconds, 0, UINT32_MAX)));
}

} // namespace

CommandText textOf(Port& port, const Command& command) noexcept {
    CommandText copy{};
    HeldLock lock(port);
    std::copy_n(command.text(*port.record), command.size - 1, copy.text);
    return copy;
}

void setText(Port& port, const Command& command, const char* text) noexcept {
    HeldLock lock(port);
    char* field = command.text(*port.record);
    std::fill_n(field, command.size, '\0');
    std::memcpy(field, text, strnlen(text, command.size - 1));
}

int32_t send(Port& port, const Command& command) {
    return writeString(port, textOf(port, command).text);
}

int32_t dial(Port& port, const char* number) {
    clearCancel(port);
    int32_t patience = port.record->dialTimeout;
    auto until = deadlineIn(patience);
    if (!pauseUnlessStopped(port, settleTime))
        return -1;
    // From here to the end of the line no cancel is looked at: a modem with half a command would take the
    // next one for the rest of the number.
    send(port, command<&PortRecord::dialStr>);
    writeString(port, number);
    writeByte(port, '\r');
    if (!pauseUnlessStopped(port, settleTime))
        return -1;
    return patience == 0 ? 1 : awaitCarrier(port, until);
}

int32_t hangUp(Port& port) {
    send(port, command<&PortRecord::discStr>);
    yieldPause(port, 1000);
    if (port.ending())
        return -1;
    return setCarrierLatch(port, false);
}

int32_t ringing(Port& port) {
    if (ComPortFunc function = port.record->ringFunc)
        return function(port.number);
    uint32_t lines = 0;
    return port.device.modemStatus(lines) && (lines & COM_HOST_MODEM_RING) != 0 ? 1 : 0;
}

} // namespace brisolt::modem

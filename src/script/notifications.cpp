#include "script/notifications.h"

#include "platform/message.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/posting.h"
#include "port/trace.h"
#include "script/peek.h"
#include "script/wildcard.h"

namespace brisolt {

namespace {

constexpr uint32_t anyDataMessage = 0x800A;
constexpr uint32_t characterMessage = 0x800B;
constexpr uint32_t stringMessage = 0x800C;

bool always(Port&) {
    return true;
}

bool characterIsThere(Port& port) {
    HeldLock lock(port);
    int32_t offset = findUnread(port, port.record->notifyChar);
    bool wrapped = port.record->rxHead < port.record->rxTail;
    if (offset >= 0 && !wrapped)
        trace(port, "ComPeekChar found position at %d", offset);
    return offset >= 0;
}

bool stringIsThere(Port& port) {
    char pattern[sizeof(PortWorkArea::notifyString)];
    {
        HeldLock lock(port);
        std::memcpy(pattern, port.workArea->notifyString, sizeof pattern);
    }
    UnreadText unread(port);
    return unread.text() != nullptr && wildSearch(unread.text(), pattern).has_value();
}

/// What callers can be told of, and who is.
struct Kind {
    uint32_t message;
    bool (*test)(Port& port);
    TargetField<ComPortFunc> function;
    TargetField<int32_t> window;
    TargetField<uint32_t> thread;
};
constexpr Kind kinds[] = {
    {anyDataMessage, always, &PortRecord::anyCharCallback, &PortRecord::anyCharWindow,
     &PortRecord::anyCharThread},
    {characterMessage, characterIsThere, &PortRecord::onCharCallback, &PortRecord::onCharWindow,
     &PortRecord::onCharThread},
    {stringMessage, stringIsThere, &PortRecord::onStringCallback, &PortRecord::onStringWindow,
     &PortRecord::onStringThread},
};

/// Each target has its own test: the function told before it may have read what was found. A failed post is
/// nobody's business here: the receiver is gone, or its queue is full because it does not look.
void tell(Port& port, const Kind& kind) {
    const PortRecord& record = *port.record;
    int32_t number = port.number;
    if (ComPortFunc function = record.*kind.function; function != nullptr && kind.test(port))
        function(number);
    if (!port.isOpen())
        return; // the function has closed it
    if (int32_t window = record.*kind.window; window != 0 && kind.test(port))
        message::postToWindow(window, kind.message, 0, number);
    if (uint32_t thread = record.*kind.thread; thread != 0 && kind.test(port))
        message::postToThread(thread, kind.message, 0, number);
}

/// Runs on the I/O thread without the port's lock, between the receiving and the sending of a round: so a
/// function may do anything with its port, and what is unread may be less than the round has brought.
void notify(Port& port) {
    for (const Kind& kind : kinds)
        if (port.isOpen())
            tell(port, kind);
}

} // namespace

int32_t setReplacement(Port& port, int32_t enable, uint8_t from, uint8_t to) noexcept {
    HeldLock lock(port); // no round replaces the old value by the new
    port.record->replaceFrom = from;
    port.record->replaceTo = to;
    port.record->replaceEnabled = enable;
    return 1;
}

// The thread may have to watch the device itself now, or need not any more.
int32_t targetsChanged(Port& port) noexcept {
    setNotificationStep(notify);
    offerToWatch(port);
    port.wakeThread();
    return 1;
}

void setNotifyString(Port& port, const char* string) noexcept {
    HeldLock lock(port);
    char* field = port.workArea->notifyString;
    constexpr std::size_t longest = sizeof(PortWorkArea::notifyString) - 1;
    std::size_t length = strnlen(string, longest);
    std::memcpy(field, string, length);
    std::memset(field + length, 0, longest + 1 - length);
}

} // namespace brisolt

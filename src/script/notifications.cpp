#include "script/notifications.h"

#include "platform/message.h"
#include "port/io_round.h"

namespace brisolt {

namespace {

constexpr uint32_t anyDataMessage = 0x800A;

/// Runs on the I/O thread, between the receiving and the sending of a round. A failed post is nobody's business
/// here: the receiver is gone, or does not look.
void notify(Port& port) {
    const PortRecord& record = *port.record;
    int32_t number = port.number;
    if (ComPortFunc function = record.anyCharCallback)
        function(number);
    if (!port.isOpen())
        return; // the function has closed it
    if (int32_t window = record.anyCharWindow; window != 0)
        message::postToWindow(window, anyDataMessage, 0, number);
    if (uint32_t thread = record.anyCharThread; thread != 0)
        message::postToThread(thread, anyDataMessage, 0, number);
}

/// A target has changed: the thread may have to watch the device itself now, or need not any more.
int32_t targetSet(Port& port) noexcept {
    setNotificationStep(notify);
    port.wakeThread();
    return 1;
}

} // namespace

int32_t notifyWindow(Port& port, int32_t window) {
    port.record->anyCharWindow = window;
    return targetSet(port);
}

int32_t notifyThread(Port& port, uint32_t thread) {
    port.record->anyCharThread = thread;
    return targetSet(port);
}

int32_t notifyFunction(Port& port, ComPortFunc function) {
    port.record->anyCharCallback = function;
    return targetSet(port);
}

} // namespace brisolt

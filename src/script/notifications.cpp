#include "script/notifications.h"

#include "port/io_round.h"

namespace brisolt {

namespace {

constexpr uint32_t anyDataMessage = 0x800A;

/// Runs on the I/O thread, in a round, with portLock held.
void notify(Port& port, Outbox& outbox) {
    const PortRecord& record = *port.record;
    if (ComPortFunc function = record.anyCharCallback)
        function(port.number);
    if (!port.isOpen())
        return; // the function has closed it
    if (int32_t window = record.anyCharWindow; window != 0)
        outbox.toWindow(window, anyDataMessage);
    if (uint32_t thread = record.anyCharThread; thread != 0)
        outbox.toThread(thread, anyDataMessage);
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

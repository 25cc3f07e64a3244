#include "platform/clock.h"
#include "port/flow.h"
#include "port/io_thread.h"
#include "port/open_close.h"
#include "port/port_table.h"
#include "port/trace.h"
#include "port/waits.h"

namespace brisolt {

void turnOff(Port& port) {
    port.open = 0;
    port.orphans = tracked::detach(port.number);
    table::withdraw(port);
    port.events.wakeAll();
    port.wakeThread();
}

namespace {

struct CloseStyle {
    const char* firstLine;
    uint32_t threadWait; ///< milliseconds for the thread to report, beside 100 before and 100 after
    bool releasesDevice;
};
constexpr CloseStyle ownStyle{"ComClose Called", 10 * 500, true};
constexpr CloseStyle adoptedStyle{"ComPreClose Called", 10 * 100, false};
constexpr uint32_t settle = 100;
constexpr uint32_t leaveTime = 400; ///< for everybody who is still inside the port

/// The thread wakes, sees that it is not to run, and reports.
void awaitThread(Port& port, uint32_t milliseconds) {
    auto until = clock::Deadline::in(milliseconds);
    while (port.threadDone != 1 && !until.passed()) {
        uint32_t seen = port.events.count();
        if (port.threadDone != 1)
            sleepOnPort(port, seen, {}, until);
    }
}

void stopThread(Port& port, const CloseStyle& style) {
    port.threadRun = 0;
    trace(port, "Flag to shut down threads - turned on");
    port.device.cancel(true); // whoever waits for the line waits no more
    port.wakeThread();
    if (onIoThread(port))
        return; // a notification function closes its own port: it cannot wait for itself
    clock::sleep(settle);
    awaitThread(port, style.threadWait);
    clock::sleep(settle);
}

int32_t close(Port& port, const CloseStyle& style) {
    if (port.closing.exchange(1) != 0)
        return -1;
    port.events.wakeAll(); // whoever waits on the port ends here
    trace(port, "%s", style.firstLine);
    stopThread(port, style);
    trace(port, "Thread shut down complete");
    if (style.releasesDevice) {
        trace(port, "Dropping DTR - Turning Open State Off");
        clearDtr(port);
        port.closeCallersHandle = 1;
    }
    bool ownThread = onIoThread(port);
    turnOff(port);
    if (!ownThread)
        clock::sleep(leaveTime);
    if (style.releasesDevice)
        trace(port, "Deleting Critical Section - Thread should have exited");
    table::letGo(port); // the table's hold; the caller's own goes after this
    return 1;
}

} // namespace

int32_t closePort(Port& port) {
    return close(port, ownStyle);
}

int32_t preClosePort(Port& port) {
    return close(port, adoptedStyle);
}

} // namespace brisolt

#include <algorithm>

#include "device/device.h"
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
    deviceNames::endOpened(port.number);
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
    bool settles; ///< pauses for everybody else
};
constexpr CloseStyle ownStyle{"ComClose Called", 10 * 500, true, true};
constexpr CloseStyle adoptedStyle{"ComPreClose Called", 10 * 100, false, true};
constexpr CloseStyle ownAtOnce{"ComClose Called", 10 * 500, true, false};
constexpr CloseStyle adoptedAtOnce{"ComPreClose Called", 10 * 100, false, false};
constexpr uint32_t settle = 100;
constexpr uint32_t look = 50;       ///< milliseconds between two looks at a write that is under way
constexpr uint32_t leaveTime = 400; ///< for everybody who is still inside the port

/// Whether a block that is on its way to the line moves: the device's queue of it grows shorter. That shows in
/// steps only, where a chip or an adapter takes several bytes at once.
class Movement {
public:
    explicit Movement(Port& port) noexcept : port_(port) {
        constexpr uint32_t chipQueue = 64;
        // Not the line state: whoever changes the line may hold it while a far end does not answer.
        auto baud = static_cast<uint32_t>(std::max<int32_t>(port.record->baudRate, 1));
        longestStep_ = std::max(shortestStep, chipQueue * bitsPerByte * 1000 / baud);
    }
    /// Something is being written, and nothing has moved for longer than a step takes.
    bool hasStopped() noexcept {
        uint32_t turn = port_.writeTurn;
        uint32_t queued = port_.device.status(COM_HOST_WANT_OUT).outQueue;
        if (!isWrite(turn) || turn != turn_ || queued != queued_)
            stops_ = clock::Deadline::in(longestStep_);
        turn_ = turn;
        queued_ = queued;
        return stops_.passed();
    }
    static bool isWrite(uint32_t turn) noexcept { return turn % 2 != 0; }

private:
    static constexpr uint32_t bitsPerByte = 10;
    static constexpr uint32_t shortestStep = 500; ///< milliseconds
    Port& port_;
    uint32_t longestStep_;
    uint32_t turn_ = 0;
    uint32_t queued_ = 0;
    clock::Deadline stops_ = clock::Deadline::never();
};

/// Waits until the thread has seen that it is not to run and has reported, and until a caller's write that is
/// under way is over. They have that time as long as their bytes move; a peer that holds them off has not.
void awaitWriters(Port& port, bool thread, uint32_t milliseconds) {
    auto until = clock::Deadline::in(milliseconds);
    Movement movement(port);
    bool moving = true;
    uint32_t begun = port.writeTurn;
    const auto busy = [&] {
        return (thread && port.threadDone != 1) || (Movement::isWrite(begun) && port.writeTurn == begun);
    };
    for (uint32_t seen = port.events.count(); busy() && !until.passed(); seen = port.events.count()) {
        if (moving && movement.hasStopped()) {
            moving = false;
            port.device.cancel(true);
        }
        if (busy())
            sleepOnPort(port, seen, {}, clock::Deadline::earlier(until, clock::Deadline::in(look)));
    }
    if (moving)
        port.device.cancel(true); // whoever waits for the line from here on waits no more
}

void stopThread(Port& port, const CloseStyle& style) {
    port.threadRun = 0;
    trace(port, "Flag to shut down threads - turned on");
    port.wakeThread();
    if (!style.settles)
        port.device.cancel(true); // at once: who wanted it to leave has waited for that
    if (onIoThread(port)) {       // a notification function closes its own port: it cannot wait for itself
        awaitWriters(port, false, style.threadWait);
        return;
    }
    if (style.settles)
        clock::sleep(settle);
    if (style.settles || port.threaded())
        awaitWriters(port, true, style.threadWait);
    if (style.settles)
        clock::sleep(settle);
}

/// Everybody who was inside has been told; nobody finds the port any more.
void awaitLeavers(const Port& port, const CloseStyle& style) {
    constexpr uint32_t tablesAndCallers = 2;
    if (style.settles) {
        clock::sleep(leaveTime);
        return;
    }
    auto until = clock::Deadline::in(leaveTime);
    while (port.holds.load() > tablesAndCallers && !until.passed())
        clock::sleep(1);
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
        if (!port.device.options().leaveLinesAtClose)
            clearDtr(port);
        port.closeCallersHandle = 1;
    }
    bool ownThread = onIoThread(port);
    turnOff(port);
    if (!ownThread)
        awaitLeavers(port, style);
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

int32_t closePortAtOnce(Port& port) {
    return close(port, port.device.adopted() ? adoptedAtOnce : ownAtOnce);
}

} // namespace brisolt

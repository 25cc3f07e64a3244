// ComHostRead: the bytes go from the device to the caller's buffer while the ring is empty and nobody else has to
// be told of them. Who asks for few gets them by way of the ring, with whatever else has come: the next calls then need
// nothing of the host.
#include <optional>

#include "platform/signal_gate.h"
#include "platform/thread.h"
#include "platform/wake.h"
#include "port/device_io.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/waits.h"
#include "stream/exchange.h"
#include "stream/reading.h"

namespace brisolt::exchange {

namespace {

using Room = std::span<uint8_t>;

/// Somebody is notified of what comes, or the port's rounds are this caller's: then the ring is in between, unless
/// the program watches the device.
bool goesThroughRing(const Port& port) noexcept {
    return port.byDescriptor == 0 && (!port.threaded() || hasNotifications(port));
}

/// A copy of so many bytes costs less than another call of the host.
constexpr std::size_t few = 2048;

bool readsAhead(const Port& port, Room to) noexcept {
    return to.size() <= few && port.threaded() && port.byDescriptor == 0;
}

/// Everything that the device holds, into the empty ring. Who else waits for bytes is told when some are left.
int32_t takeByRing(Port& port, Room to) noexcept WITH_LOCK(port.portLock) {
    if (receiveStep(port) == 0)
        return 0;
    port.receiving.callerFound();
    replacementStep(port);
    const int32_t got = readRing(port, to.data(), static_cast<int32_t>(to.size()));
    if (port.rx.count() > 0)
        port.events.wakeAll();
    return got;
}

/// What is there now.
int32_t take(Port& port, Room to) noexcept {
    if (goesThroughRing(port) && port.threaded() && port.rx.count() == 0)
        takeFromDevice(port);
    HeldLock lock(port);
    if (!port.threaded())
        directRound(port);
    if (port.rx.count() > 0)
        return readRing(port, to.data(), static_cast<int32_t>(to.size()));
    if (goesThroughRing(port))
        return 0;
    if (readsAhead(port, to))
        return takeByRing(port, to);
    const int32_t got = readDevice(port, to);
    if (got > 0)
        port.receiving.callerFound();
    return got;
}

/// A function of the caller's in the place of the device can wake nobody.
int32_t readVirtual(Port& port, ComReadFunc function, Room to, int32_t milliseconds) {
    Call call(port, milliseconds);
    for (;;) {
        uint32_t seen = port.events.count();
        int32_t got = function(port.number, to.data(), static_cast<int32_t>(to.size()));
        if (got != 0)
            return got;
        if (int32_t end = call.ended(); end != 0 || call.until().passed())
            return end;
        auto look = clock::Deadline::earlier(call.until(), clock::Deadline::in(1));
        if (sleepOnPort(port, seen, {.signals = true}, look).interrupted)
            return interrupted;
    }
}

int32_t readWaiting(Port& port, Room to, int32_t milliseconds) {
    Call call(port, milliseconds);
    std::optional<SignalGate> gate; // most waits are one sleep, which needs none
    for (bool timeOver = false;;) {
        uint32_t seen = port.events.count();
        if (port.rx.count() > 0 || timeOver)
            if (int32_t got = take(port, to); got > 0 || timeOver)
                return got;
        if (int32_t end = call.ended(); end != 0) {
            int32_t left = end == gone ? take(port, to) : 0; // what came before it went
            return left > 0 ? left : end;
        }
        WaitFor what{.bytes = true, .direct = !goesThroughRing(port), .signals = true};
        Slept slept = sleepOnPort(port, seen, what, nextLook(port, what, call.until()));
        if (slept.bytesThere)
            if (int32_t got = take(port, to); got > 0)
                return got;
        if (slept.interrupted)
            return interrupted;
        if (!gate.has_value())
            gate.emplace(port.device.sleepsItself());
        if (slept.bytesThere)
            restAfterBrokenPromise(port, seen);
        timeOver = call.until().passed();
    }
}

} // namespace

int32_t read(Port& port, void* buffer, int32_t count, int32_t milliseconds) {
    if (!port.isOpen() || count < 0 || (buffer == nullptr && count > 0))
        return -1;
    if (count == 0)
        return 0;
    Room to(static_cast<uint8_t*>(buffer), static_cast<std::size_t>(count));
    if (ComReadFunc function = port.record->readFunc)
        return readVirtual(port, function, to, milliseconds);
    if (port.rx.storage == nullptr)
        return -1;
    // Who has just written waits for an answer, which takes its time: a look before the wait would be in vain.
    bool answerDue =
        port.answerDue.load(std::memory_order_relaxed) == thread::currentId() && port.rx.count() == 0;
    if (!answerDue || milliseconds == 0)
        if (int32_t got = take(port, to); got > 0)
            return got;
    if (milliseconds == 0)
        return port.device.present() && port.device.state() == COM_HOST_DEVICE_GONE ? gone : 0;
    return readWaiting(port, to, milliseconds);
}

int32_t descriptor(Port& port) {
    if (!port.hasDevice())
        return cannot;
    if (port.device.state() == COM_HOST_DEVICE_GONE)
        return gone;
    int32_t own = port.device.descriptor(); // none while it is looked for
    if (own < 0)
        return cannot;
    HeldLock lock(port); // a round that takes bytes is over now, and none begins
    port.byDescriptor = 1;
    port.wakeThread();
    return own;
}

} // namespace brisolt::exchange

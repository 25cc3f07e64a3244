#include "port/waits.h"

#include <algorithm>

#include "platform/message.h"
#include "platform/signal_gate.h"
#include "platform/wake.h"
#include "port/io_round.h"
#include "port/io_thread.h"
#include "port/port_table.h"

namespace brisolt {

namespace {

constexpr uint32_t pollPace = 1; ///< milliseconds, where nothing can wake a wait

/// A caller's watch over one direction of the device, for which the I/O thread stands back meanwhile.
class CallerWatch {
public:
    CallerWatch() = default;
    CallerWatch(const CallerWatch&) = delete;
    CallerWatch& operator=(const CallerWatch&) = delete;
    void begin(Port& port, DirectionWatch& direction) noexcept {
        port_ = &port;
        direction_ = &direction;
        if (direction.callerBegins())
            port.wakeThread();
    }
    ~CallerWatch() {
        if (direction_ != nullptr && direction_->callerEnds())
            port_->wakeThread();
    }

private:
    Port* port_ = nullptr;
    DirectionWatch* direction_ = nullptr;
};

/// A caller's watch over the device while it waits: for bytes if it waits for them, for room if a lossless
/// port has something to send.
class DeviceWatch {
public:
    DeviceWatch(Port& port, const WaitFor& what) noexcept {
        if (!port.device.canWait() || port.closing != 0)
            return;
        bool notifying = hasNotifications(port);
        if (what.room)
            events_ |= COM_HOST_WAIT_WRITE;
        if (what.bytes && !leftToThread(port, notifying) && (what.direct || hasRoom(port))) {
            events_ |= COM_HOST_WAIT_READ;
            if (port.threaded() && !notifying) // else the thread goes on watching, for its notifications
                receiving_.begin(port, port.receiving);
        }
        if (port.threaded() && hasUnsent(port)) {
            events_ |= COM_HOST_WAIT_WRITE;
            sending_.begin(port, port.sending);
        }
    }
    uint32_t events() const noexcept { return events_; }

private:
    static bool leftToThread(const Port& port, bool notifying) noexcept {
        bool threadIsQuick = notifying && port.record->threadSleep == 0 && port.record->suspended != 1 &&
                             !port.receiving.threadStandsBack();
        return threadIsQuick && !onIoThread(port);
    }
    // A full ring takes nothing; watching a device that has bytes for it would not be a sleep.
    static bool hasRoom(Port& port) noexcept {
        HeldLock lock(port);
        return !port.rx.room().empty();
    }
    CallerWatch receiving_, sending_;
    uint32_t events_ = 0;
};

bool quitToSee(const Port& port) noexcept {
    return port.record->escapeFunc.load() == nullptr && message::quitPending();
}

/// Sleeps on the thread's own wake, and on the device when it watches for something. What the device holds.
uint32_t sleepOnce(Port& port, Wake& wake, const WaitFor& what, uint32_t events,
                   const clock::Deadline& until) noexcept {
    int32_t left = until.realMillisecondsLeft();
    if (events == 0 && what.signals)
        return wake.sleepInterruptibly(left) ? Device::interrupted : 0;
    if (events == 0) {
        wake.sleep(left);
        return 0;
    }
    uint32_t held = port.device.wait(events, wake.descriptor(), wake.patience(left));
    return wake.cannotWait(held != 0 || wake.woken() || until.passed()) ? events : held;
}

/// Does what the I/O thread would have done. False when the device has not kept its promise.
bool serveDevice(Port& port, const WaitFor& what, uint32_t held) noexcept {
    bool kept = true;
    if ((held & COM_HOST_WAIT_READ) != 0 && port.threaded() && !what.direct)
        kept = takeFromDevice(port);
    if ((held & COM_HOST_WAIT_WRITE) != 0)
        kept = sendToDevice(port) && kept;
    return kept;
}

/// Handles the calling thread's messages up to the escape character. The escape character is consumed.
template <class StillOpen> int32_t pump(int32_t character, StillOpen stillOpen, int32_t whenClosed) {
    ComHostMessage message{};
    for (;;) {
        if (message::quitPending())
            return 1;
        if (!message::take(message))
            return 0;
        bool typed = message.message == COM_HOST_MESSAGE_CHAR;
        bool escape = typed && character >= 0 && (message.first & 0xFF) == static_cast<uintptr_t>(character);
        if (escape || !stillOpen()) {
            message::letGo();
            return escape ? 1 : whenClosed;
        }
        message::dispatch(message);
        if (!stillOpen())
            return whenClosed;
    }
}

/// Waits for a moment. While `yielding` says so, `checkMessages` is called whenever the thread may have one,
/// and ends the wait with -1. So does the close.
template <class Yielding, class Check>
int32_t waitUntil(Port& port, const clock::Deadline& until, Yielding yielding, Check checkMessages) {
    while (!until.passed()) {
        uint32_t seen = port.events.count();
        bool messages = yielding();
        if (messages && checkMessages())
            return -1;
        if (port.ending())
            return -1;
        WaitFor what{.bytes = false, .messages = messages, .quit = messages};
        sleepOnPort(port, seen, what, nextLook(port, what, until));
    }
    return 1;
}

constexpr auto never = [] { return false; };
constexpr auto always = [] { return true; };

} // namespace

bool messagesToPump(const Port& port) noexcept {
    return port.record->escapeFunc.load() == nullptr && message::waiting() && !message::quitPending();
}

Slept sleepOnPort(Port& port, uint32_t seen, WaitFor what, const clock::Deadline& until) {
    if (what.signals && SignalGate::knocked())
        return {.interrupted = true};
    Wake& wake = *Wake::ofThisThread();
    PortEvents::Waiter waiter(port.events, wake);
    uint32_t held = 0;
    {
        DeviceWatch watch(port, what);
        wake.prepare();
        bool quiet = port.events.count() == seen && !(what.messages && messagesToPump(port)) &&
                     !(what.quit && quitToSee(port));
        if (quiet)
            held = sleepOnce(port, wake, what, watch.events(), until);
        wake.finish();
    }
    port.counters.noteState(port);
    bool kept = serveDevice(port, what, held);
    if (!kept)
        restAfterBrokenPromise(port, seen);
    return {.bytesThere = what.direct && (held & COM_HOST_WAIT_READ) != 0,
            .roomThere = what.room && (held & COM_HOST_WAIT_WRITE) != 0,
            .interrupted = what.signals && (held & Device::interrupted) != 0};
}

void restAfterBrokenPromise(Port& port, uint32_t seen) noexcept {
    Wake& wake = *Wake::ofThisThread();
    PortEvents::Waiter waiter(port.events, wake);
    wake.prepare();
    if (port.events.count() == seen)
        wake.sleep(static_cast<int32_t>(pollPace));
    wake.finish();
}

clock::Deadline nextLook(const Port& port, WaitFor what, const clock::Deadline& until) noexcept {
    bool blind = what.messages && port.record->escapeFunc.load() != nullptr;
    bool foreignBytes = port.record->statusFunc.load() != nullptr || port.record->readFunc.load() != nullptr;
    bool ownRounds = !port.threaded() && port.tx.count() > 0; // what is queued moves only when we look
    blind = blind || (what.room && !port.device.canWait());
    blind = blind || (what.bytes && (foreignBytes || ownRounds || !port.device.canWait()));
    return blind ? clock::Deadline::earlier(until, clock::Deadline::in(pollPace)) : until;
}

int32_t checkEscape(Port& port, int32_t character) {
    if (!port.isOpen())
        return -1;
    if (ComEscapeFunc function = port.record->escapeFunc)
        return function(port.number, character);
    int32_t result = pump(
        character & 0xFF, [&port] { return port.isOpen(); }, -1);
    return result == 0 && !port.isOpen() ? 1 : result;
}

int32_t checkEscapeIfYielding(Port& port) {
    return port.record->yield != 0 ? checkEscape(port, port.record->escapeChar) : 0;
}

int32_t pumpMessages() {
    return pump(
        -1, [] { return true; }, -1);
}

void pumpMessagesUntil(const clock::Deadline& until) {
    Wake& wake = *Wake::ofThisThread();
    while (!until.passed()) {
        bool quit = pumpMessages() == 1;
        wake.prepare();
        if (quit || !message::waiting())
            wake.sleep(until.realMillisecondsLeft());
        wake.finish();
    }
}

int32_t sleepMilliseconds(Port& port, int64_t milliseconds) {
    if (!port.isOpen())
        return -1;
    if (milliseconds < 1)
        return 1;
    auto time = static_cast<uint32_t>(std::min<int64_t>(milliseconds, UINT32_MAX));
    return waitUntil(
        port, clock::Deadline::in(time), [&port] { return port.record->yield != 0; },
        [&port] { return checkEscape(port, port.record->escapeChar) == 1; });
}

uint32_t pauseLength(int32_t hundredths) noexcept {
    constexpr int64_t longest = UINT32_MAX - 1; // all ones would be no limit
    return static_cast<uint32_t>(std::clamp<int64_t>(int64_t{hundredths} * 10 + 1, 1, longest));
}

void pause(Port& port, uint32_t milliseconds) {
    waitUntil(port, clock::Deadline::in(milliseconds), never, never);
}

int32_t pumpPause(Port& port, uint32_t milliseconds) {
    return waitUntil(port, clock::Deadline::in(milliseconds), always, [] { return pumpMessages() == 1; });
}

int32_t yieldPause(Port& port, uint32_t milliseconds) {
    if (port.record->yield != 0)
        return pumpPause(port, milliseconds);
    pause(port, milliseconds);
    return 1;
}

void clearCancel(Port& port) noexcept {
    port.record->cancelFlag = 0;
}

bool cancelled(const Port& port) noexcept {
    return port.record->cancelFlag == 1;
}

bool stopped(const Port& port) noexcept {
    return port.ending() || cancelled(port);
}

bool pauseUnlessStopped(Port& port, uint32_t milliseconds) {
    auto until = clock::Deadline::in(milliseconds);
    for (;;) {
        uint32_t seen = port.events.count();
        if (stopped(port))
            return false;
        if (until.passed())
            return true;
        sleepOnPort(port, seen, {}, until);
    }
}

void cancel(Port& port) noexcept {
    port.cancels.fetch_add(1); // first: who sees the flag finds it counted
    port.record->cancelFlag = 1;
    port.events.wakeAll();
}

} // namespace brisolt

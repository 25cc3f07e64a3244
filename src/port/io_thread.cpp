#include "port/io_thread.h"

#include <algorithm>
#include <cstdio>
#include <new>

#include "platform/error_text.h"
#include "platform/message.h"
#include "platform/parking.h"
#include "platform/thread.h"
#include "port/device_io.h"
#include "port/half_duplex.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/posting.h"
#include "port/trace.h"
#include "port/waits.h"
#include "port/watch.h"

namespace brisolt {

namespace {

constexpr uint32_t suspendLimit = 500; ///< milliseconds
constexpr uint32_t blindPace = 5;      ///< least pause between looks at a device that cannot be waited for
constexpr int32_t ownMessages = 255;

/// Both directions, and the choice made for the next sleep. Whom the port notifies has its own way to watch
/// for bytes.
class Shares {
public:
    explicit Shares(Port& port) noexcept : port_(port), posting_(port) {}
    Stance receiving = Stance::watching;
    Stance sending = Stance::watching;

    void choose() noexcept {
        receiving = sending = Stance::watching;
        notifying_ = hasNotifications(port_);
        chosen_ = port_.device.canWait();
        if (chosen_) {
            Stance posted = posting_.choose(); // which also ends with the notifications
            receiving = notifying_ ? posted : receivingShare_.choose(port_.receiving);
            sending = sendingShare_.choose(port_.sending);
        }
        port_.receiving.stance = receiving;
        port_.sending.stance = sending;
    }
    /// A caller has come or gone while the choice was made, and did not see it yet.
    bool crossed() const noexcept {
        bool crossedReceiving =
            notifying_ ? posting_.crossed() : ThreadShare::crossed(receiving, port_.receiving);
        // One who left bytes saw the stance before, and relies on the thread to come back to them.
        bool left = chosen_ && sending == Stance::watching && sendingShare_.overtaken(port_.sending);
        return crossedReceiving || left || ThreadShare::crossed(sending, port_.sending);
    }
    /// What has come meanwhile is taken by callers who came, too.
    bool overtaken() const noexcept { return !notifying_ && receivingShare_.overtaken(port_.receiving); }
    /// -1: until something happens.
    int32_t realMillisecondsLeft() const noexcept {
        int32_t left = -1;
        if (notifying_)
            left = posting_.onItsOwnUntil().realMillisecondsLeft();
        else if (receiving == Stance::standby)
            left = receivingShare_.standbyUntil().realMillisecondsLeft();
        if (sending == Stance::standby) {
            int32_t other = sendingShare_.standbyUntil().realMillisecondsLeft();
            left = left < 0 ? other : std::min(left, other);
        }
        return left;
    }
    void awake() noexcept {
        port_.receiving.stance = Stance::busy;
        port_.sending.stance = Stance::busy;
    }

private:
    Port& port_;
    Posting posting_;
    ThreadShare receivingShare_{receivingLease};
    ThreadShare sendingShare_{sendingLease};
    bool notifying_ = false;
    bool chosen_ = false; ///< not for a device that cannot be waited for
};

/// Waits until the thread has come up. False: it could not.
bool hasComeUp(Port& port) noexcept {
    constexpr auto notYet = static_cast<uint32_t>(ThreadStart::none);
    while (port.threadStart == notYet)
        parking::park(port.threadStart, notYet, -1);
    return port.threadStart == static_cast<uint32_t>(ThreadStart::up);
}

void tellNoMemory() noexcept try {
    setErrorText("cannot start the thread of the port: no memory for what it keeps of its own");
} catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then there is no text either
}

/// The opener says it in the thread's place: what formats and logs a text would cost the stack of every port
/// a page or two for good.
void announce(Port& port) {
    char text[80];
    std::snprintf(text, sizeof text, "\r\n Starting COM Thread on Port:%d Thread:%d", port.number.load(),
                  static_cast<int32_t>(port.record->ioThread.load()));
    debugOutput(text);
    trace(port, "STARTING READ/WRITE THREAD");
}

void stop(Port& port) {
    trace(port, "STOPPING READ/WRITE THREAD Open State = 0");
    if (port.threadRun != 0)
        return; // the port closed under the thread: nobody waits for its report
    port.threadDone = 1;
    port.events.wakeAll();
}

/// How long the port is still held back, in milliseconds; a suspension that is over, or too far off to be
/// real, ends here.
uint32_t suspendedFor(Port& port) noexcept {
    PortRecord& record = *port.record;
    if (record.suspended != 1)
        return 0;
    auto left = static_cast<int32_t>(record.suspendUntil - clock::ticks());
    if (left > 0 && left <= static_cast<int32_t>(suspendLimit))
        return static_cast<uint32_t>(left);
    record.suspended = 0;
    return 0;
}

/// The pace: how long until the next round may run.
struct Pace {
    uint32_t lastRound;
    uint32_t left(const Port& port) const noexcept {
        uint32_t pace = port.record->threadSleep;
        if (pace == 0)
            return 0;
        uint32_t elapsed = clock::ticks() - lastRound;
        return elapsed > pace ? 0
                              : pace + 1 - elapsed; // ticks are rounded down: one more is on the safe side
    }
};

/// The thread's own message queue is served like a caller's.
void serviceMessages(Port& port) {
    if (messagesToPump(port) || port.record->escapeFunc.load() != nullptr)
        checkEscape(port, ownMessages);
}

/// Sleeps for as long as `left` says, or until somebody calls the thread. What it says is asked after the
/// thread can be called, so that no change of it is missed.
template <class Left> void sleepOff(Port& port, Left left) noexcept {
    Wake& wake = *port.threadWake;
    wake.prepare();
    uint32_t milliseconds = left();
    if (milliseconds > 0 && port.threadRun != 0 && port.isOpen())
        wake.sleep(clock::Deadline::in(milliseconds).realMillisecondsLeft());
    wake.finish();
}

/// What a round is for.
struct Work {
    bool receive = false;
    bool transmit = false;
    bool promised = false; ///< the device says so
    bool any() const noexcept { return receive || transmit; }
};

struct Outlook {
    bool roundNow;   ///< bytes wait in the transmit ring, or news to be told
    bool tellAgain;  ///< the ring is full, and somebody is notified as long as the device holds more
    uint32_t events; ///< what to wait for on the device
};

/// What there is to do, looked at under the lock so that no writer's bytes and no reader's room are missed.
Outlook lookAhead(Port& port, const Shares& shares) noexcept {
    HeldLock lock(port);
    bool room = !port.rx.room().empty();
    port.rxStalled = room ? 0 : 1;
    bool halfDuplex = port.halfDuplex != 0; // the thread alone sends, also for a writer whose turn it is
    bool unsent = !port.tx.empty() && (halfDuplex || !port.writers.taken());
    bool lossless = port.lossless != 0;
    uint32_t events = 0;
    if (room && shares.receiving == Stance::watching && port.byDescriptor == 0)
        events |= COM_HOST_WAIT_READ;
    if (unsent && lossless && !halfDuplex && shares.sending == Stance::watching)
        events |= COM_HOST_WAIT_WRITE;
    return {.roundNow = (unsent && (halfDuplex ? mayStartSending(port) : !lossless)) || port.untold != 0,
            .tellAgain = !room && hasNotifications(port),
            .events = events};
}

/// Where the device cannot wake the thread, it is looked at again and again at the port's pace.
void sleepBlind(const Port& port) noexcept {
    uint32_t pace = std::max<uint32_t>(port.record->threadSleep, blindPace);
    port.threadWake->sleep(clock::Deadline::in(pace).realMillisecondsLeft());
}

/// Sleeps on the device, or on the clock where that is no use.
Work sleepFor(Port& port, const Outlook& outlook, const Shares& shares) noexcept {
    if (outlook.roundNow)
        return {.receive = true, .transmit = true};
    if (outlook.tellAgain || !port.device.canWait()) {
        sleepBlind(port);
        return {.receive = true, .transmit = true};
    }
    Wake& wake = *port.threadWake;
    uint32_t held = port.device.wait(outlook.events, wake.descriptor(), shares.realMillisecondsLeft());
    if (wake.cannotWait(held != 0 || wake.woken() || shares.realMillisecondsLeft() == 0))
        return {.receive = (outlook.events & COM_HOST_WAIT_READ) != 0,
                .transmit = (outlook.events & COM_HOST_WAIT_WRITE) != 0};
    return {.receive = (held & COM_HOST_WAIT_READ) != 0,
            .transmit = (held & COM_HOST_WAIT_WRITE) != 0,
            .promised = true};
}

/// Sleeps until there may be work. What a round would find.
Work waitForWork(Port& port, Shares& shares) noexcept {
    Wake& wake = *port.threadWake;
    wake.prepare();
    shares.choose();
    bool due = port.threadRun == 0 || !port.isOpen() || port.record->suspended == 1 || messagesToPump(port);
    Work work;
    if (!shares.crossed() && !due)
        work = sleepFor(port, lookAhead(port, shares), shares);
    if (work.promised && shares.overtaken())
        work.receive = false;
    shares.awake();
    wake.finish();
    port.counters.noteState(port);
    return work;
}

void runRound(Port& port, const Work& work, Pace& pace) {
    bool moved = threadRound(port, work.receive);
    pace.lastRound = clock::ticks();
    statusRead(port);
    if (work.promised &&
        !moved) // a device that says it has bytes or room must not keep us running for nothing
        sleepOff(port, [] { return blindPace; });
}

void run(Port& port) {
    Shares shares(port);
    Pace pace{.lastRound = clock::ticks() - port.record->threadSleep - 1};
    Work work;
    while (port.threadRun != 0 && port.isOpen()) {
        if (suspendedFor(port) > 0) {
            sleepOff(port, [&port] { return suspendedFor(port); });
        } else if (!work.any()) {
            serviceMessages(port);
            work = waitForWork(port, shares);
        } else if (pace.left(port) > 0) {
            sleepOff(port, [&port, &pace] { return pace.left(port); });
        } else {
            runRound(port, work, pace);
            work = {};
        }
    }
    stop(port);
}

// A header is never given back to the host, so that its word may be named even after its port has gone.
void report(Port& port, ThreadStart start) noexcept {
    port.threadStart = static_cast<uint32_t>(start);
    parking::unparkAll(port.threadStart);
}

void threadMain(void* argument) {
    Port& port = *static_cast<Port*>(argument);
    if (!Wake::giveThisThread(port.threadWake)) {
        table::letGo(port); // before the opener, who holds it too, hears of it and gives it up
        report(port, ThreadStart::noMemory);
        return;
    }
    if (port.threadMessages)
        message::giveThisThread(*port.threadMessages);
    const HeldPort held(&port);
    port.record->ioThread = thread::currentId();
    report(port, ThreadStart::up);
    run(port);
}

} // namespace

bool startIoThread(Port& port) noexcept {
    port.threadMessages = message::makePlace();
    port.threadTask = {threadMain, &port, "brisolt-io"};
    table::tryHold(port); // the thread's own
    if (!thread::start(port.threadTask)) {
        table::letGo(port);
        return false;
    }
    if (!hasComeUp(port)) {
        tellNoMemory();
        return false;
    }
    announce(port);
    return true;
}

bool onIoThread(const Port& port) noexcept {
    return port.record->ioThread == thread::currentId();
}

void setIoPriority(Port& port, int32_t level) noexcept {
    using enum thread::Priority;
    thread::Priority priority = normal;
    switch (level) {
    case 1: priority = lowest; break;
    case 4: priority = belowNormal; break;
    case 6: priority = aboveNormal; break;
    case 9: priority = highest; break;
    case 10: priority = timeCritical; break;
    default: break;
    }
    if (uint32_t id = port.record->ioThread; id != 0)
        thread::setPriority(id, priority);
}

} // namespace brisolt

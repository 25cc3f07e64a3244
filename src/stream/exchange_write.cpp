// ComHostWrite: the bytes go from the caller's buffer to the device on the caller's thread, as a plain program
// would do it. The ring gets what the device has stopped taking, so that a caller with time is not held up by a
// device that takes its own.
#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "platform/signal_gate.h"
#include "platform/thread.h"
#include "port/device_io.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/scramble.h"
#include "port/waits.h"
#include "stream/exchange.h"

namespace brisolt::exchange {

namespace {

using Bytes = std::span<const uint8_t>;

/// How long a device may take nothing, in milliseconds, before the ring takes the rest of a write.
constexpr uint32_t standstill = 20;

/// Of a write up to so long the ring takes the rest at once: a copy costs less than a sleep, and what gathers
/// while the device is full goes to it in larger blocks.
constexpr std::size_t shortWrite = 4096;

int32_t sendScrambled(Port& port, Bytes bytes) noexcept {
    std::array<uint8_t, 1024> clearless;
    int32_t sent = 0;
    for (;;) {
        auto piece = bytes.subspan(static_cast<std::size_t>(sent));
        piece = piece.first(std::min(piece.size(), clearless.size()));
        uint8_t key = port.record->scrambleKey;
        std::transform(piece.begin(), piece.end(), clearless.begin(),
                       [key](uint8_t byte) { return scrambleByte(key, byte); });
        int32_t taken = writeNow(port, {clearless.data(), piece.size()});
        sent += taken;
        if (taken < static_cast<int32_t>(piece.size()) || sent == static_cast<int32_t>(bytes.size()))
            return sent;
    }
}

/// What the device takes now, after what was queued before. With the turn. What others queue when the call has
/// `begun` goes behind all of its bytes.
int32_t handOver(Port& port, Bytes bytes, bool begun) noexcept WITH_LOCK(port.sendLock) {
    if (port.halfDuplex != 0)
        return 0;
    if (!begun && !port.tx.empty()) {
        transmitLossless(port);
        if (!port.tx.empty())
            return 0;
    }
    return port.record->scrambleOn == 1 ? sendScrambled(port, bytes) : writeNow(port, bytes);
}

/// Behind what is there.
int32_t queueRest(Port& port, Bytes bytes) noexcept WITH_LOCK(port.sendLock) {
    if (port.record->scrambleOn != 1)
        return port.tx.queue(bytes);
    int32_t queued = 0;
    for (uint8_t byte : bytes) {
        uint8_t scrambled = scrambleByte(port.record->scrambleKey, byte);
        if (port.tx.queue({&scrambled, 1}) == 0)
            break;
        ++queued;
    }
    return queued;
}

std::size_t ringRoom(const Port& port) noexcept {
    return static_cast<std::size_t>(std::max(port.tx.size - port.tx.count() - 1, 0));
}

/// Whether the port's thread would come at once: it has no pace and runs no function of the program's. Who waits
/// for bytes would send in its place, and be called away from them for every block.
bool threadIsQuick(const Port& port) noexcept {
    const PortRecord& record = *port.record;
    bool alone = port.receiving.callers.load(std::memory_order_relaxed) == 0;
    return alone && port.threaded() && record.threadSleep == 0 && record.suspended != 1 &&
           port.device.canWait() && !hasNotifications(port) && record.escapeFunc.load() == nullptr;
}

/// Whether the ring has room, and a thread behind it that sends what nobody else does as soon as it can.
bool ringTakesOver(const Port& port, Bytes bytes) noexcept {
    return port.lossless != 0 && port.halfDuplex == 0 && bytes.size() <= ringRoom(port) &&
           threadIsQuick(port) && port.device.state() == COM_HOST_DEVICE_THERE && !port.ending();
}

/// A short write behind others that wait for room; whoever queued those has seen to it that they leave.
bool queueBehind(Port& port, Bytes bytes) noexcept WITH_LOCK(port.sendLock) {
    bool queues = bytes.size() <= shortWrite && !port.tx.empty() && !port.writers.taken();
    return queues && ringTakesOver(port, bytes) && queueRest(port, bytes) > 0;
}

/// A write that the device did not take at once. It has the turn, or waits for it.
class WaitingWrite {
public:
    WaitingWrite(Port& port, WriterQueue::Place& place, Bytes bytes, int32_t handed, bool asked,
                 int32_t milliseconds) noexcept
        : port_(port), place_(place), bytes_(bytes), call_(port, milliseconds),
          gate_(port.device.sleepsItself()), askedNow_(asked), handed_(handed) {}
    ~WaitingWrite();
    WaitingWrite(const WaitingWrite&) = delete;
    WaitingWrite& operator=(const WaitingWrite&) = delete;
    int32_t run();

private:
    Bytes rest() const noexcept { return bytes_.subspan(static_cast<std::size_t>(handed_)); }
    bool hasTurn() noexcept {
        HeldSend lock(port_);
        return place_.granted;
    }
    bool moveOn(bool timeOver) noexcept;
    bool mayQueue(bool timeOver) const noexcept;
    int32_t giveUp(int32_t why) const noexcept { return handed_ > 0 ? handed_ : why; }

    Port& port_;
    WriterQueue::Place& place_;
    Bytes bytes_;
    Call call_;
    clock::Deadline moving_ = clock::Deadline::in(standstill);
    SignalGate gate_;
    bool askedNow_; ///< the device has just taken less than it was offered
    int32_t handed_;
};

WaitingWrite::~WaitingWrite() {
    bool unsent = false, others = false;
    {
        HeldSend lock(port_);
        others = port_.writers.leave(place_);
        unsent = !others && !port_.tx.empty();
    }
    if (others)
        port_.events.wakeAll();
    if (unsent)
        port_.wakeThread();
}

/// Whether it is time for the ring to take what it has room for. A call whose bytes are on their way already
/// leaves a ring alone in which there are others.
bool WaitingWrite::mayQueue(bool timeOver) const noexcept {
    if (port_.halfDuplex != 0)
        return true;
    bool wanted = timeOver || (moving_.passed() && rest().size() <= ringRoom(port_));
    return wanted && (handed_ == 0 || port_.tx.empty());
}

/// The device takes what it takes now, the ring the rest when it is time for that. True when all is handed over.
bool WaitingWrite::moveOn(bool timeOver) noexcept {
    HeldSend lock(port_);
    int32_t taken = handOver(port_, rest(), handed_ > 0);
    handed_ += taken;
    if (rest().empty())
        return true;
    if (taken > 0)
        moving_ = clock::Deadline::in(standstill);
    if (mayQueue(timeOver)) {
        taken = queueRest(port_, rest());
        handed_ += taken;
        if (taken > 0 && port_.halfDuplex != 0)
            port_.wakeThread();
    }
    return rest().empty();
}

int32_t WaitingWrite::run() {
    for (bool promised = false;;) {
        uint32_t seen = port_.events.count();
        if (int32_t end = call_.ended(); end != 0)
            return giveUp(end);
        bool timeOver = call_.until().passed();
        bool turn = hasTurn();
        bool asked = std::exchange(askedNow_, false) && !timeOver;
        uint64_t before = port_.sent.load(std::memory_order_relaxed); // also of what was queued before
        if ((turn && !asked && moveOn(timeOver)) || timeOver)
            return handed_;
        if (promised && port_.sent.load(std::memory_order_relaxed) == before)
            restAfterBrokenPromise(port_, seen);
        clock::Deadline look =
            turn && !moving_.passed() ? clock::Deadline::earlier(call_.until(), moving_) : call_.until();
        WaitFor what{.room = turn && port_.halfDuplex == 0, .signals = true};
        Slept slept = sleepOnPort(port_, seen, what, nextLook(port_, what, look));
        if (slept.interrupted)
            return giveUp(interrupted);
        promised = slept.roomThere;
    }
}

/// A function of the caller's in the place of the device may take less than all, and can wake nobody.
int32_t writeVirtual(Port& port, ComWriteFunc function, Bytes bytes, int32_t milliseconds) {
    Call call(port, milliseconds);
    std::array<uint8_t, 4096> copy; // it may change what it gets
    std::size_t handed = 0;
    for (;;) {
        uint32_t seen = port.events.count();
        Bytes piece = bytes.subspan(handed);
        piece = piece.first(std::min(piece.size(), copy.size()));
        std::copy(piece.begin(), piece.end(), copy.begin());
        int32_t taken = function(port.number, copy.data(), static_cast<int32_t>(piece.size()));
        if (taken > 0)
            handed += std::min(static_cast<std::size_t>(taken), piece.size());
        int32_t end = taken < 0 ? taken : call.ended();
        if (handed == bytes.size() || end != 0 || call.until().passed())
            return handed > 0 ? static_cast<int32_t>(handed) : end;
        if (taken > 0)
            continue;
        auto look = clock::Deadline::earlier(call.until(), clock::Deadline::in(1));
        if (sleepOnPort(port, seen, {.signals = true}, look).interrupted)
            return handed > 0 ? static_cast<int32_t>(handed) : interrupted;
    }
}

} // namespace

int32_t write(Port& port, const void* buffer, int32_t count, int32_t milliseconds) {
    if (!port.isOpen() || count < 0 || (buffer == nullptr && count > 0))
        return -1;
    Bytes bytes(static_cast<const uint8_t*>(buffer), static_cast<std::size_t>(count));
    if (count == 0)
        return 0;
    if (ComWriteFunc function = port.record->writeFunc)
        return writeVirtual(port, function, bytes, milliseconds);
    if (port.tx.storage == nullptr)
        return -1;
    port.answerDue.store(thread::currentId(), std::memory_order_relaxed);
    WriterQueue::Place place;
    int32_t handed = 0;
    bool asked = false, left = false;
    {
        HeldSend lock(port);
        if (queueBehind(port, bytes))
            return count;
        port.writers.ask(place);
        asked = place.granted && port.halfDuplex == 0;
        if (place.granted)
            handed = handOver(port, bytes, false);
        Bytes rest = bytes.subspan(static_cast<std::size_t>(handed));
        left = place.granted && !rest.empty() && bytes.size() <= shortWrite && port.tx.empty() &&
               ringTakesOver(port, rest);
        if (left)
            handed += queueRest(port, rest);
        if (handed == count)
            port.writers.leave(place); // nobody has come meanwhile
    }
    // The caller's next write may well be what sends it.
    if (left && port.sending.callerLeaves())
        port.wakeThread();
    return handed == count ? count : WaitingWrite(port, place, bytes, handed, asked, milliseconds).run();
}

} // namespace brisolt::exchange

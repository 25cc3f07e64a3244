// ComHostWrite: the bytes go from the caller's buffer to the device on the caller's thread, as a plain program
// would do it. The ring gets what the device has stopped taking, so that a caller with time is not held up by a
// device that takes its own.
#include <algorithm>
#include <array>
#include <span>

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

/// What the device takes now, after what was queued before. With the turn.
int32_t handOver(Port& port, Bytes bytes) noexcept WITH_LOCK(port.sendLock) {
    if (port.halfDuplex != 0)
        return 0;
    if (!port.tx.empty())
        transmitLossless(port);
    if (!port.tx.empty())
        return 0;
    return port.record->scrambleOn == 1 ? sendScrambled(port, bytes) : writeNow(port, bytes);
}

int32_t queueScrambled(Port& port, Bytes bytes) noexcept {
    int32_t queued = 0;
    for (uint8_t byte : bytes) {
        uint8_t scrambled = scrambleByte(port.record->scrambleKey, byte);
        if (port.tx.queue({&scrambled, 1}) == 0)
            break;
        ++queued;
    }
    return queued;
}

/// A write that the device did not take at once. It has the turn, or waits for it.
class WaitingWrite {
public:
    WaitingWrite(Port& port, Bytes bytes, int32_t handed, bool hasTurn, int32_t milliseconds) noexcept
        : port_(port), bytes_(bytes), call_(port, milliseconds), handed_(handed) {
        place_.granted = hasTurn;
    }
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
    int32_t giveUp(int32_t why) const noexcept { return handed_ > 0 ? handed_ : why; }

    Port& port_;
    Bytes bytes_;
    Call call_;
    WriterQueue::Place place_;
    clock::Deadline moving_ = clock::Deadline::in(standstill);
    int32_t handed_;
};

WaitingWrite::~WaitingWrite() {
    bool unsent = false;
    {
        HeldSend lock(port_);
        if (place_.granted)
            port_.writers.release();
        else
            port_.writers.leaveQueue(place_);
        unsent = !port_.tx.empty();
    }
    if (unsent)
        port_.wakeThread();
}

/// The device takes what it takes now, the ring the rest when it is time for that. True when all is handed over.
bool WaitingWrite::moveOn(bool timeOver) noexcept {
    HeldSend lock(port_);
    int32_t taken = handOver(port_, rest());
    handed_ += taken;
    if (rest().empty())
        return true;
    if (taken > 0)
        moving_ = clock::Deadline::in(standstill);
    auto room = static_cast<std::size_t>(std::max(port_.tx.size - port_.tx.count() - 1, 0));
    bool stands = port_.halfDuplex != 0 || moving_.passed();
    if (timeOver || (stands && rest().size() <= room))
        handed_ += port_.record->scrambleOn == 1 ? queueScrambled(port_, rest()) : port_.tx.queue(rest());
    return rest().empty();
}

int32_t WaitingWrite::run() {
    place_.wake = Wake::ofThisThread().get();
    if (!hasTurn()) {
        HeldSend lock(port_);
        port_.writers.queue(place_);
    }
    for (;;) {
        uint32_t seen = port_.events.count();
        if (int32_t end = call_.ended(); end != 0)
            return giveUp(end);
        bool timeOver = call_.until().passed();
        bool turn = hasTurn();
        if ((turn && moveOn(timeOver)) || timeOver)
            return handed_;
        clock::Deadline look =
            turn && !moving_.passed() ? clock::Deadline::earlier(call_.until(), moving_) : call_.until();
        WaitFor what{.room = turn && port_.halfDuplex == 0, .signals = true};
        if (sleepOnPort(port_, seen, what, nextLook(port_, what, look)).interrupted)
            return giveUp(interrupted);
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
    port.answerDue.store(1, std::memory_order_relaxed);
    int32_t handed = 0;
    bool hasTurn = false;
    {
        HeldSend lock(port);
        hasTurn = !port.writers.taken();
        if (hasTurn)
            handed = handOver(port, bytes);
        if (handed == count)
            return count;
        if (hasTurn)
            port.writers.take();
    }
    return WaitingWrite(port, bytes, handed, hasTurn, milliseconds).run();
}

} // namespace brisolt::exchange

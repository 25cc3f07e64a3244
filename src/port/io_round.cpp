#include "port/io_round.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "platform/mutex.h"
#include "port/device_io.h"
#include "port/half_duplex.h"
#include "port/port_table.h"
#include "port/trace.h"

namespace brisolt {

namespace {

std::atomic<void (*)(Port&)> notificationStep{nullptr};

void replaceIn(std::span<uint8_t> bytes, uint8_t from, uint8_t to) noexcept {
    std::replace(bytes.begin(), bytes.end(), from, to);
}

/// The trace names the count that a read is meant for, which costs a question to the device that the read
/// itself does not need. Empty: the device holds nothing, or the ring takes nothing.
std::span<uint8_t> tracedIntention(Port& port, std::span<uint8_t> room) noexcept {
    if (!port.device.tellsStatus())
        return room;
    std::size_t held = statusRead(port, COM_HOST_WANT_IN).inQueue;
    room = room.first(std::min(held, room.size()));
    bool atTheSize = port.record->rxHead >= port.rx.size;
    if (held == 0 || atTheSize)
        return room;
    trace(port, "Reading %d characters", static_cast<int32_t>(room.size()));
    if (room.empty())
        deviceRead(port, room); // says so in the trace
    return room;
}

// Bytes leave the ring before they are written, and what the device does not take is gone.
bool transmitBlock(Port& port) noexcept {
    auto block = port.tx.next();
    block = block.first(std::min(block.size(), static_cast<std::size_t>(port.record->maxWriteChars)));
    if (block.empty())
        return false;
    auto count = static_cast<int32_t>(block.size());
    std::memcpy(port.workArea->txStage, block.data(), block.size());
    port.staged = count;
    port.tx.sent(count);
    trace(port, "Writing %d characters", count);
    deviceWrite(port, {port.workArea->txStage, block.size()});
    port.staged = 0;
    return true;
}

int32_t receive(Port& port, std::size_t most) noexcept {
    auto room = port.rx.room();
    room = room.first(std::min(room.size(), most));
    if (tracing(port))
        room = tracedIntention(port, room);
    if (room.empty())
        return 0;
    int32_t got = deviceRead(port, room);
    if (got < 1)
        return 0;
    port.rx.filled(got);
    port.answerDue.store(0, std::memory_order_relaxed);
    return got;
}

} // namespace

int32_t receiveStep(Port& port) noexcept {
    return port.byDescriptor != 0 ? 0 : receive(port, SIZE_MAX);
}

void replacementStep(Port& port) noexcept {
    PortRecord& record = *port.record;
    if (record.replaceEnabled == 0)
        return;
    auto unread = port.rx.unread();
    replaceIn(unread.first, record.replaceFrom, record.replaceTo);
    replaceIn(unread.second, record.replaceFrom, record.replaceTo);
}

bool transmitLossless(Port& port) noexcept {
    for (bool took = false;;) {
        auto bytes = port.tx.next();
        if (bytes.empty())
            return took;
        int32_t taken = writeNow(port, bytes);
        bool full = taken < static_cast<int32_t>(bytes.size());
        port.sendingFull = full ? 1 : 0;
        if (taken < 1)
            return took;
        took = true;
        trace(port, "Writing %d characters", taken);
        port.tx.sent(taken);
        if (full)
            return took;
    }
}

bool transmitStep(Port& port) noexcept {
    HeldSend lock(port);
    if (port.writers.taken() || port.halfDuplex != 0)
        return false;
    return port.lossless != 0 ? transmitLossless(port) : transmitBlock(port);
}

void directRound(Port& port) noexcept {
    statusRead(port);
    int32_t before = port.record->rxHead;
    bool wrapped = before < port.record->rxTail;
    if (receiveStep(port) > 0) {
        int32_t head = port.record->rxHead;
        if (!wrapped && head > before && head < port.rx.size)
            trace(port, "Read HWM %d Read LWM", head);
        port.events.wakeAll();
    }
    replacementStep(port);
    if (port.isOpen())
        transmitStep(port);
    statusRead(port);
}

namespace {

/// The receiving part of a thread's round. True when the device had bytes, also when the ring is full and
/// took none: who is notified is told of them all the same.
bool receiveLocked(Port& port) noexcept {
    HeldLock lock(port);
    bool had = receiveStep(port) > 0;
    if (!had && hasNotifications(port) && port.rx.room().empty())
        had = statusRead(port, COM_HOST_WANT_IN).inQueue > 0;
    if (had)
        replacementStep(port);
    return had;
}

// What a lossless port sends holds nobody up who reads.
bool transmitLocked(Port& port) noexcept {
    if (port.lossless != 0)
        return port.isOpen() && transmitStep(port);
    HeldLock lock(port);
    return port.isOpen() && transmitStep(port);
}

/// Whoever is woken for the news wants portLock at once, so it is told after the lock is released.
void tellReceived(Port& port) {
    port.events.wakeAll();
    if (auto* step = notificationStep.load(std::memory_order_acquire); step && hasNotifications(port))
        step(port);
}

bool takeLocked(Port& port) noexcept {
    HeldLock lock(port);
    statusRead(port);
    // What the program watches itself is taken as it is asked for, byte by byte: the next may be meant for it.
    if (receive(port, port.byDescriptor != 0 ? 1 : SIZE_MAX) == 0)
        return false;
    replacementStep(port);
    return true;
}

struct Drained {
    bool had;   ///< the device had bytes
    bool toEnd; ///< and has no more
};

/// The ring's room may lie in two pieces; a read that does not fill its piece has emptied the device.
Drained drain(Port& port) noexcept WITH_LOCK(port.portLock) {
    Drained drained{.had = false, .toEnd = false};
    statusRead(port);
    for (auto room = port.rx.room(); !room.empty() && !drained.toEnd; room = port.rx.room()) {
        int32_t got = receiveStep(port);
        drained.had |= got > 0;
        drained.toEnd = got < static_cast<int32_t>(room.size());
    }
    if (drained.had)
        replacementStep(port);
    return drained;
}

/// Nothing while somebody else is busy with the port.
Drained drainIfFree(Port& port) noexcept {
    if (!port.portLock.try_lock())
        return {.had = false, .toEnd = false};
    const Drained drained = drain(port);
    port.portLock.unlock();
    return drained;
}

} // namespace

bool threadRound(Port& port, bool mayReceive) {
    bool untold = port.untold.exchange(0) != 0;
    bool had = (mayReceive && receiveLocked(port)) || untold;
    if (had)
        tellReceived(port);
    if (port.tx.empty())
        return had;
    if (port.halfDuplex != 0) {
        if (!mayStartSending(port))
            return had;
        sendHalfDuplex(port);
        return true;
    }
    return transmitLocked(port) || had;
}

bool takeFromDevice(Port& port) noexcept {
    if (!takeLocked(port))
        return false;
    port.events.wakeAll();
    if (hasNotifications(port)) {
        port.untold = 1;
        port.wakeThread();
    }
    return true;
}

bool tellFromDevice(Port& port) {
    Drained drained = drainIfFree(port);
    if (drained.had)
        tellReceived(port);
    return drained.toEnd;
}

bool sendToDevice(Port& port) noexcept {
    HeldSend lock(port);
    return !hasUnsent(port) || !port.isOpen() || transmitLossless(port);
}

bool hasUnsent(const Port& port) noexcept {
    return port.lossless != 0 && !port.tx.empty() && port.record->suspended != 1 && !port.writers.taken() &&
           port.halfDuplex == 0;
}

void setNotificationStep(void (*step)(Port&)) noexcept {
    notificationStep.store(step, std::memory_order_release);
}

bool hasNotifications(const Port& port) noexcept {
    const PortRecord& record = *port.record;
    return record.anyCharCallback.load() || record.onCharCallback.load() || record.onStringCallback.load() ||
           record.anyCharWindow != 0 || record.onCharWindow != 0 || record.onStringWindow != 0 ||
           record.anyCharThread != 0 || record.onCharThread != 0 || record.onStringThread != 0;
}

} // namespace brisolt

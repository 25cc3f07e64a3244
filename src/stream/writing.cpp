#include "stream/writing.h"

#include <algorithm>
#include <span>

#include "platform/thread.h"
#include "port/device_io.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/posting.h"
#include "port/scramble.h"
#include "port/trace.h"
#include "port/waits.h"

namespace brisolt {

namespace {

void scramble(const Port& port, std::span<uint8_t> bytes) noexcept {
    if (port.record->scrambleOn != 1)
        return;
    uint8_t key = port.record->scrambleKey;
    std::transform(bytes.begin(), bytes.end(), bytes.begin(),
                   [key](uint8_t byte) { return scrambleByte(key, byte); });
}

bool mayWriteThrough(const Port& port) noexcept {
    return port.tx.empty() && port.record->writeThru == 1 && !port.writers.taken() && port.halfDuplex == 0;
}

/// Bytes of a write that waits for room go through the ring piece by piece, where the port's thread alone sends:
/// others have no room meanwhile.
bool ringIsTaken(const Port& port) noexcept {
    return port.halfDuplex != 0 && port.writers.taken();
}

int32_t queue(Port& port, std::span<const uint8_t> bytes) noexcept {
    int32_t taken = ringIsTaken(port) ? 0 : port.tx.queue(bytes);
    if (taken > 0 && port.threaded())
        port.wakeThread();
    return taken;
}

/// A lossless port's ring takes the bytes. The thread is called for the first of them only: while there are
/// any it looks after them, or stands back for a moment for callers that do. A caller that is the port's
/// lookout sends them itself, before the thread would have woken.
int32_t queueLossless(Port& port, std::span<const uint8_t> bytes) noexcept WITH_LOCK(port.sendLock) {
    bool first = port.tx.empty();
    int32_t taken = ringIsTaken(port) ? 0 : port.tx.queue(bytes);
    if (first && taken > 0 && watchedHere(port) && hasUnsent(port)) {
        transmitLossless(port);
        if (port.tx.empty())
            return taken;
    }
    if (first && taken > 0 && port.threaded() && port.sending.stance != Stance::standby)
        port.wakeThread();
    return taken;
}

/// The device takes what it has room for now, the ring the rest: nothing waits, nothing is dropped.
int32_t writeLossless(Port& port, std::span<const uint8_t> bytes) noexcept WITH_LOCK(port.sendLock) {
    bool deviceMayTake = port.threaded() && port.record->writeThru == 1 && port.sendingFull == 0;
    if (deviceMayTake && hasUnsent(port))
        transmitLossless(port);
    int32_t through = 0;
    if (mayWriteThrough(port)) {
        if (tracing(port))
            trace(port, "Performing Write-Thru: Bytes: %d Write-thru State:%d",
                  static_cast<int32_t>(bytes.size()), port.record->writeThru.load());
        through = writeNow(port, bytes);
        port.sendingFull = through < static_cast<int32_t>(bytes.size()) ? 1 : 0;
    }
    auto rest = bytes.subspan(static_cast<std::size_t>(through));
    return rest.empty() ? through : through + queueLossless(port, rest);
}

/// The whole block goes to the device when nothing is queued before it and the device has room for all of
/// it, else into the ring.
int32_t writeDefault(Port& port, std::span<const uint8_t> bytes) noexcept {
    if (mayWriteThrough(port)) {
        auto held = static_cast<int32_t>(statusRead(port, COM_HOST_WANT_OUT).outQueue);
        int32_t room = port.record->maxWriteChars - held;
        if (room >= static_cast<int32_t>(bytes.size())) {
            trace(port, "Performing Write-Thru: Bytes: %d Write-thru State:%d",
                  static_cast<int32_t>(bytes.size()), port.record->writeThru.load());
            return writeBlock(port, bytes, room);
        }
    }
    return queue(port, bytes);
}

} // namespace

int32_t write(Port& port, void* buffer, int32_t count) {
    if (!port.isOpen())
        return -1;
    if (ComWriteFunc function = port.record->writeFunc)
        return function(port.number, buffer, count);
    if (count < 1)
        return 0;
    if (buffer == nullptr || port.tx.storage == nullptr)
        return -1;
    std::span<uint8_t> bytes(static_cast<uint8_t*>(buffer), static_cast<std::size_t>(count));
    scramble(port, bytes);
    HeldLock lock(port);
    if (!port.threaded())
        directRound(port);
    statusRead(port);
    port.answerDue.store(thread::currentId(), std::memory_order_relaxed);
    HeldSend send(port);
    return port.lossless != 0 ? writeLossless(port, bytes) : writeDefault(port, bytes);
}

void forgetRefusal(Port& port) noexcept {
    if (port.tx.empty())
        port.writeRefused = 0;
}

int32_t writeByte(Port& port, int32_t value) {
    auto byte = static_cast<uint8_t>(value & 0xFF);
    return write(port, &byte, 1);
}

int32_t writeString(Port& port, const char* string) {
    if (!port.isOpen() || port.record->portNumber < 1)
        return -1;
    for (; *string != 0; ++string) {
        if (*string == '~')
            yieldPause(port, 1000);
        else
            writeByte(port, *string == '|' ? '\r' : *string);
        if (port.ending())
            return -1;
    }
    return 1;
}

int32_t bytesUnsent(Port& port) {
    if (!port.isOpen())
        return -1;
    if (ComPortFunc function = port.record->outBufStatusFunc)
        return function(port.number);
    if (port.tx.storage == nullptr)
        return -1;
    // In the order of their way out: what moves on meanwhile is not missed.
    int32_t queued = port.tx.count();
    int32_t staged = port.staged;
    auto held = static_cast<int32_t>(statusRead(port, COM_HOST_WANT_OUT).outQueue);
    return queued + std::max(staged, held);
}

} // namespace brisolt

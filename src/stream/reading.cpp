#include "stream/reading.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "port/device_io.h"
#include "port/io_round.h"
#include "port/port_table.h"
#include "port/scramble.h"
#include "port/trace.h"

namespace brisolt {

namespace {

/// Copies ring bytes into the caller's buffer, clear again when the link is scrambled.
void copyOut(const Port& port, std::span<const uint8_t> from, uint8_t* to) noexcept {
    std::memcpy(to, from.data(), from.size());
    const PortRecord& record = *port.record;
    if (record.scrambleOn != 1)
        return;
    uint8_t key = record.scrambleKey;
    std::transform(to, to + from.size(), to, [key](uint8_t byte) { return unscrambleByte(key, byte); });
}

/// The unread bytes lie in one piece, or the first piece is enough.
int32_t readPiece(Port& port, std::span<const uint8_t> piece, uint8_t* buffer, int32_t count) noexcept {
    auto available = static_cast<int32_t>(piece.size());
    int32_t taken = std::min(available, count);
    if (taken > 0)
        trace(port, "ComRead count:%d len:%d", available, count);
    copyOut(port, piece.first(static_cast<std::size_t>(taken)), buffer);
    int32_t tail = port.record->rxTail + taken;
    bool emptied = tail == port.record->rxHead;
    if (emptied) {
        port.rx.clear();
        return taken;
    }
    port.record->rxTail = tail == port.rx.size ? 0 : tail;
    if (port.lossless != 0)
        port.rx.wrapFull();
    return taken;
}

/// The count goes past the end of the storage: the rest comes from its start.
int32_t readWrapped(Port& port, ReceiveRing::Pieces unread, uint8_t* buffer, int32_t count) noexcept {
    auto first = static_cast<int32_t>(unread.first.size());
    auto second = static_cast<int32_t>(unread.second.size());
    trace(port, "ComRead partial ++count:%d len:%d", first, count);
    copyOut(port, unread.first, buffer);
    int32_t rest = std::min(count - first, second);
    if (rest > 0)
        trace(port, "ComRead partial add count:%d len:%d", second, count);
    copyOut(port, unread.second.first(static_cast<std::size_t>(rest)), buffer + first);
    if (rest == second)
        port.rx.clear();
    else
        port.record->rxTail = rest;
    return first + rest;
}

/// The I/O thread leaves a full ring alone; somebody has just made room.
void resumeReceiving(Port& port) noexcept {
    if (port.rxStalled.load(std::memory_order_relaxed) == 0 || port.rx.room().empty())
        return;
    port.rxStalled = 0;
    port.wakeThread();
}

} // namespace

int32_t readRing(Port& port, uint8_t* to, int32_t count) noexcept {
    auto unread = port.rx.unread();
    bool wrapped = port.record->rxHead < port.record->rxTail;
    bool onePiece = !wrapped || static_cast<int32_t>(unread.first.size()) >= count;
    int32_t result =
        onePiece ? readPiece(port, unread.first, to, count) : readWrapped(port, unread, to, count);
    resumeReceiving(port);
    return result;
}

int32_t readDevice(Port& port, std::span<uint8_t> to) noexcept {
    int32_t got = deviceRead(port, to);
    if (got < 1)
        return 0;
    port.answerDue.store(0, std::memory_order_relaxed);
    auto bytes = to.first(static_cast<std::size_t>(got));
    const PortRecord& record = *port.record;
    if (record.replaceEnabled != 0)
        std::replace(bytes.begin(), bytes.end(), record.replaceFrom.load(), record.replaceTo.load());
    if (record.scrambleOn == 1)
        std::transform(bytes.begin(), bytes.end(), bytes.begin(),
                       [key = record.scrambleKey.load()](uint8_t byte) { return unscrambleByte(key, byte); });
    return got;
}

int32_t read(Port& port, void* buffer, int32_t count) {
    if (!port.isOpen())
        return -1;
    if (ComReadFunc function = port.record->readFunc)
        return function(port.number, buffer, count);
    if (count < 1)
        return 0;
    if (buffer == nullptr || port.rx.storage == nullptr)
        return -1;
    HeldLock lock(port);
    if (!port.threaded())
        directRound(port);
    else if (port.rx.count() == 0 && port.receiving.threadStandsBack())
        takeFromDevice(port); // while callers watch the device, that is for them to do
    statusRead(port);
    auto* to = static_cast<uint8_t*>(buffer);
    int32_t got = readRing(port, to, count);
    if (port.byDescriptor != 0 && got < count)
        got += readDevice(port, {to + got, static_cast<std::size_t>(count - got)});
    return got;
}

int32_t readByte(Port& port) {
    uint8_t byte = 0;
    return read(port, &byte, 1) == 1 ? byte : -1;
}

int32_t bytesWaiting(Port& port) {
    if (!port.isOpen())
        return -1;
    if (ComPortFunc function = port.record->statusFunc)
        return function(port.number);
    if (port.rx.storage == nullptr)
        return -1;
    HeldLock lock(port);
    if (port.threaded())
        statusRead(port);
    else
        directRound(port);
    if (port.byDescriptor != 0)
        return port.rx.count() + static_cast<int32_t>(statusRead(port, COM_HOST_WANT_IN).inQueue);
    if (int32_t count = port.rx.count(); count > 0)
        return count;
    if (port.threaded()) {
        if (tracing(port))
            if (auto held = statusRead(port, COM_HOST_WANT_IN).inQueue; held > 0)
                trace(port, "%d characters in buffer to read", static_cast<int32_t>(held));
        if (receiveStep(port) > 0)
            port.events.wakeAll();
    }
    replacementStep(port);
    return port.rx.count();
}

int32_t bytesArrived(Port& port) {
    bool ringTellsAll = port.threaded() && port.device.canWait() && port.byDescriptor == 0 &&
                        port.record->statusFunc.load() == nullptr;
    if (!ringTellsAll)
        return bytesWaiting(port);
    if (!port.isOpen())
        return -1;
    HeldLock lock(port);
    return port.rx.count();
}

int32_t readToEmpty(Port& port, uint8_t* buffer, int32_t terminator, int32_t maximum) {
    int64_t limit = static_cast<int64_t>(maximum) + 1;
    int32_t count = 0;
    while (count < limit) {
        int32_t got = read(port, buffer + count, 1);
        if (!port.isOpen())
            return -1;
        if (got != 1)
            return count;
        ++count;
        if (buffer[count - 1] == (terminator & 0xFF))
            return count;
    }
    return count;
}

} // namespace brisolt

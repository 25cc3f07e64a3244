#include "port/device_io.h"

#include <system_error>

#include "port/trace.h"

namespace brisolt {

namespace {

constexpr auto timeOver = static_cast<int32_t>(std::errc::timed_out);

/// A device that has no room, or whose queue was thrown away, may take the next block; others will not.
void noteRefusal(Port& port, int32_t taken, int32_t error) noexcept {
    constexpr auto thrownAway = static_cast<int32_t>(std::errc::operation_canceled);
    if (taken > 0)
        port.writeRefused = 0;
    else if (error != 0 && error != timeOver && error != thrownAway)
        port.writeRefused = 1;
}

constexpr int32_t all(std::span<const uint8_t> bytes) {
    return static_cast<int32_t>(bytes.size());
}

} // namespace

ComHostStatus statusRead(Port& port, uint32_t wanted) noexcept {
    ComHostStatus status = port.device.status(wanted | COM_HOST_WANT_ERRORS);
    if (status.errors != 0) {
        port.record->lineErrors.orIn(status.errors);
        if ((status.errors & COM_HOST_ERROR_BREAK) != 0)
            port.record->statusFlags.orIn(statusBreakSeen);
        port.counters.noteErrors(port, status.errors);
    }
    return status;
}

// The device gives what it holds, so its queue need not be asked for its length first: one system call
// less for every block. Only the trace wants to know what was intended.
int32_t deviceRead(Port& port, std::span<uint8_t> destination) noexcept {
    if (!port.isOpen())
        return -1;
    int32_t count = port.device.read(destination.data(), all(destination));
    int32_t got = count > 0 ? count : 0;
    port.received.fetch_add(static_cast<uint64_t>(got), std::memory_order_relaxed);
    if (tracing(port)) {
        trace(port, "Reading from port Intended bytes: %d Read:%d Success:%d", all(destination), got,
              count >= 0 ? 1 : 0);
        traceBytes(port, "Hex Characters Read From Port:", destination.first(static_cast<std::size_t>(got)));
    }
    return got;
}

int32_t deviceWrite(Port& port, std::span<const uint8_t> block) noexcept {
    if (!port.isOpen())
        return -1;
    auto queued = static_cast<int32_t>(statusRead(port, COM_HOST_WANT_OUT).outQueue);
    int32_t room = port.record->maxWriteChars - queued;
    if (room < all(block))
        return -1;
    return writeBlock(port, block, room);
}

int32_t writeBlock(Port& port, std::span<const uint8_t> block, int32_t room) noexcept {
    int32_t error = 0;
    uint32_t turn = port.writeTurn.load(std::memory_order_relaxed);
    port.writeTurn.store(turn + 1, std::memory_order_release);
    int32_t written = port.device.write(block.data(), all(block), COM_HOST_WRITE_COMPLETE, error);
    port.writeTurn.store(turn + 2, std::memory_order_release);
    noteRefusal(port, written, error);
    port.sent.fetch_add(static_cast<uint64_t>(written), std::memory_order_relaxed);
    if (error != 0 && error != timeOver) {
        trace(port, "Write error: %u", static_cast<uint32_t>(error));
        statusRead(port);
    }
    if (tracing(port)) {
        trace(port, "Writing to port Intended bytes: %d Room:%d Written:%d", all(block), room, written);
        traceBytes(port, "Hex Characters Written:", block.first(static_cast<std::size_t>(written)));
        if (written < all(block))
            trace(port, "ERROR: bytes written=%d intended=%d wsuccess=%d LastError=%d", written, all(block),
                  error == 0 ? 1 : 0, error);
    }
    return written;
}

int32_t writeNow(Port& port, std::span<const uint8_t> bytes) noexcept {
    if (!port.isOpen())
        return 0;
    int32_t error = 0;
    int32_t taken = port.device.write(bytes.data(), all(bytes), COM_HOST_WRITE_NOW, error);
    noteRefusal(port, taken, error);
    port.sent.fetch_add(static_cast<uint64_t>(taken), std::memory_order_relaxed);
    if (error != 0)
        trace(port, "Write error: %u", static_cast<uint32_t>(error));
    if (tracing(port) && taken > 0) {
        trace(port, "Writing to port Intended bytes: %d Room:%d Written:%d", all(bytes), taken, taken);
        traceBytes(port, "Hex Characters Written:", bytes.first(static_cast<std::size_t>(taken)));
    }
    return taken;
}

} // namespace brisolt

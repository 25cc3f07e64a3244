// A text transfer that goes step by step: what it keeps from one step to the next, who may work on it, and
// how it ends. A port has at most one. It belongs to its port from the start call until a step has finished
// it, somebody ends it early or the port is gone; whoever takes it out of the port tells how it went.
//
// Steps come from callers, from a thread of the transfer's own, and from functions that a step lets run:
// one of them has the turn, for the others the transfer just goes on.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>

#include "platform/clock.h"
#include "platform/file.h"
#include "port/port_table.h"
#include "port/waits.h"
#include "transfer/line_ends.h"

namespace brisolt {

/// Results of a step.
inline constexpr int32_t stepGoesOn = 5;
inline constexpr int32_t stepFailed = -1;

/// A file that is read byte by byte.
class TextSource {
public:
    static constexpr int32_t atEnd = -1, unreadable = -2;

    explicit TextSource(const char* path) noexcept : file_(path, file::Sharing::all) {}
    explicit operator bool() const noexcept { return static_cast<bool>(file_); }
    /// 0 to 255, or one of the two.
    int32_t next() noexcept {
        if (at_ == count_)
            readAhead();
        if (count_ < 1)
            return count_ == 0 ? atEnd : unreadable;
        return ahead_[static_cast<std::size_t>(at_++)];
    }
    /// The bytes that come next, at most so many, up to a line feed, which is not among them. Empty: next() tells.
    std::span<const uint8_t> plainRun(int32_t most) noexcept {
        if (at_ == count_)
            readAhead();
        const uint8_t* first = ahead_.data() + at_;
        const auto left = static_cast<std::size_t>(std::clamp(count_ - at_, 0, most));
        const void* feed = left > 0 ? std::memchr(first, lineFeed, left) : nullptr;
        const auto length =
            feed == nullptr ? left : static_cast<std::size_t>(static_cast<const uint8_t*>(feed) - first);
        const std::span run(first, length);
        at_ += static_cast<int32_t>(run.size());
        return run;
    }

private:
    void readAhead() noexcept {
        count_ = file_.read(ahead_.data(), static_cast<int32_t>(ahead_.size()));
        at_ = 0;
    }

    file::Reader file_;
    std::array<uint8_t, 16384> ahead_;
    int32_t at_ = 0, count_ = 0;
};

/// A file that is received: others may read it meanwhile, not write. What it held is gone, unless somebody
/// has it open for writing: then it is not ours to empty.
class TextTarget {
public:
    explicit TextTarget(const char* path) noexcept
        : file_(path, {.access = file::Access::write,
                       .sharing = file::Sharing::readOnly,
                       .opening = file::Opening::createMissing}),
          usable_(file_ && (file_.size() == 0 || file_.truncate(0))) {}
    explicit operator bool() const noexcept { return usable_; }
    bool write(const uint8_t* bytes, int32_t count) noexcept {
        return count < 1 || file_.write(bytes, count) == count;
    }
    /// False when the host tells only now that not all was kept.
    bool close() noexcept { return file_.close(); }

private:
    file::File file_;
    bool usable_;
};

struct TextTransfer {
    enum class Direction { send, receive };
    static constexpr int32_t largestChunk = 9999;
    static constexpr int32_t blockSize = 10000;

    explicit TextTransfer(Direction which) noexcept : direction(which) {}

    const Direction direction;
    std::atomic<int32_t> inStep{1};         ///< somebody has the turn: the rest below is his
    std::atomic<int32_t> over{0};           ///< it is no longer the port's
    std::atomic<int32_t> threaded{0};       ///< a thread of its own makes the steps
    std::atomic<int32_t> asciiThreadRun{0}; ///< that thread is to go on
    std::atomic<uint32_t> transferThread{0};

    // ---- send
    std::optional<TextSource> source;
    uint8_t sendPrevChar = 0; ///< the byte of the file before the next one
    int32_t sendChunkSize = 0;
    int32_t sent = 0;    ///< bytes of the block that the port has taken
    bool ending = false; ///< the block is the last one

    // ---- receive
    std::optional<TextTarget> target;
    int32_t rxQuietTimeout = 20000; ///< milliseconds
    uint32_t rxLastData = 0;        ///< a tick count
    int32_t rxEndChar = 0;

    int32_t transferCount = 0;                ///< bytes in the block, or written to the file so far
    std::array<uint8_t, blockSize + 1> block; ///< a chunk may come out one longer, and the end marker follows
};

/// What the port's carrier-loss protocol tells of transfers.
enum class CarrierLoss : int32_t { over = 100, sending = 101, receiving = 102, onThread = 201 };

/// A transfer begins on the port, in one call or in steps, its file open: from now on no abort of an earlier
/// one discards what comes.
void countTransfer(Port& port) noexcept;
/// As ComFlush with a delay of its own, at the end of a step. Nothing when somebody else ends the transfer
/// meanwhile: he discards himself, and the port may be the next one's.
void discardAtEnd(Port& port, const TextTransfer& transfer, int32_t seconds);

/// A new transfer of the port, with the turn; null: the port has one already, or closes.
std::shared_ptr<TextTransfer> enterTransfer(Port& port, TextTransfer::Direction direction);
/// The start has come to its end: the first step may be made. False: somebody has ended it meanwhile.
bool beginSteps(Port& port, TextTransfer& transfer, CarrierLoss protocol);
/// The port's transfer in that direction; null: there is none.
std::shared_ptr<TextTransfer> transferOf(Port& port, TextTransfer::Direction direction) noexcept;
/// False when somebody else has done so before. `outcome` is told when a thread makes the steps.
bool takeOut(Port& port, TextTransfer& transfer, uint32_t outcome);

/// One step of the transfer.
int32_t nextStep(Port& port, TextTransfer& transfer);
/// Ends early whatever transfer the port has, if it has one, or `only` that one. 1, -1 when the port closed
/// meanwhile.
int32_t endEarly(Port& port, const TextTransfer* only = nullptr);

inline bool gone(const Port& port, const TextTransfer& transfer) noexcept {
    return transfer.over != 0 || port.ending();
}

/// act(), or -1 for a transfer that is over, which it cannot become meanwhile: one that somebody has been
/// told is over takes nothing more off the line and puts nothing on it. A function of the caller's in the
/// place of the line (`foreign`) is called without the lock.
template <class Act> int32_t ifNotOver(Port& port, const TextTransfer& transfer, bool foreign, Act act) {
    if (foreign)
        return gone(port, transfer) ? -1 : act();
    HeldLock lock(port);
    return gone(port, transfer) ? -1 : act();
}

/// What a transfer that is not over shows of itself: bytes it has moved, and its end in good order.
void countBytes(Port& port, const TextTransfer& transfer, int32_t count);
void tellEnd(Port& port, const TextTransfer& transfer);

enum class Messages { handled, left };

/// A wait within a step. It ends early when the transfer or the port does, when enough() says so, and, with
/// messages handled, at the port's escape: then the result is false.
template <class Enough>
bool waitInStep(Port& port, const TextTransfer& transfer, uint32_t milliseconds, Messages messages,
                Enough enough) {
    auto until = clock::Deadline::in(milliseconds);
    for (;;) {
        uint32_t seen = port.events.count();
        bool handled = messages == Messages::handled && port.record->yield != 0;
        if (handled && checkEscape(port, port.record->escapeChar) == 1)
            return false;
        if (gone(port, transfer) || until.passed() || enough())
            return true;
        WaitFor what{.bytes = false, .messages = handled, .quit = handled};
        sleepOnPort(port, seen, what, nextLook(port, what, until));
    }
}

} // namespace brisolt

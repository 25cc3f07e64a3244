#include <algorithm>

#include "stream/writing.h"
#include "transfer/line_ends.h"
#include "transfer/progress.h"
#include "transfer/text_send.h"

namespace brisolt {

namespace {

constexpr uint8_t endMarker = 26;
constexpr int32_t backlog = 1000;    ///< with more than this unsent the line is behind
constexpr uint32_t backlogWait = 20; ///< milliseconds at a time
constexpr int32_t backlogWaits = 50; ///< the most of a step, whatever the size of its chunk

/// A look at the time, the line and the messages costs as much as many bytes: with nothing to wait for there
/// is one after the first byte of a step, then one after so many.
constexpr int32_t bytesALook = 1024;

/// Why a chunk takes no more bytes, if it does not.
enum class Chunk { open, full, atEnd, escaped, unreadable, gone };

bool lineIsBehind(Port& port) {
    return bytesUnsent(port) > backlog;
}

/// Waits a moment for the line to catch up. False: the escape came.
bool awaitLine(Port& port, const TextTransfer& transfer) {
    return waitInStep(port, transfer, backlogWait, Messages::handled,
                      [&port] { return !lineIsBehind(port); });
}

void append(TextTransfer& transfer, uint8_t byte) noexcept {
    transfer.block[static_cast<std::size_t>(transfer.transferCount++)] = byte;
}

/// What needs no shaping, up to the next line feed. How many bytes.
int32_t appendPlain(TextTransfer& transfer, int32_t most) noexcept {
    const int32_t room =
        std::max(transfer.sendChunkSize - transfer.transferCount, 1); // a chunk of none has one
    const auto run = transfer.source->plainRun(std::min(most, room));
    std::copy(run.begin(), run.end(), transfer.block.begin() + transfer.transferCount);
    transfer.transferCount += static_cast<int32_t>(run.size());
    if (!run.empty())
        transfer.sendPrevChar = run.back();
    return static_cast<int32_t>(run.size());
}

/// Appends so many bytes of the file, shaped.
Chunk appendRun(const PortRecord& settings, TextTransfer& transfer, int32_t run) noexcept {
    Chunk chunk = Chunk::open;
    for (; run > 0 && chunk == Chunk::open; --run) {
        if (const int32_t plain = appendPlain(transfer, run); plain > 0) {
            run -= plain - 1;
            if (transfer.transferCount >= transfer.sendChunkSize)
                chunk = Chunk::full;
            continue;
        }
        int32_t sendChar = transfer.source->next();
        if (sendChar < 0) {
            chunk = sendChar == TextSource::atEnd ? Chunk::atEnd : Chunk::unreadable;
            break;
        }
        Shaped shape = shaped(settings, sendChar, transfer.sendPrevChar);
        transfer.sendPrevChar = static_cast<uint8_t>(sendChar);
        if (shape.afterReturn)
            append(transfer, carriageReturn);
        if (!shape.dropped)
            append(transfer, transfer.sendPrevChar);
        if (transfer.transferCount >= transfer.sendChunkSize)
            chunk = Chunk::full;
    }
    return chunk;
}

/// The pauses after a byte of the file. A line that is behind gets one wait a byte until it has caught up;
/// then it is not asked again in the same chunk, in which nothing is queued. False: the escape came.
bool pauseAfterByte(Port& port, const TextTransfer& transfer, int32_t& waitsLeft) {
    if (int32_t delay = port.record->charDelay; delay > 0) {
        auto never = [] { return false; };
        if (!waitInStep(port, transfer, static_cast<uint32_t>(delay), Messages::handled, never))
            return false;
    }
    if (waitsLeft == 0 || !lineIsBehind(port)) {
        waitsLeft = 0;
        return true;
    }
    --waitsLeft;
    return awaitLine(port, transfer);
}

Chunk fillChunk(Port& port, TextTransfer& transfer) {
    int32_t waitsLeft = backlogWaits;
    auto byteByByte = [&] {
        const PortRecord& record = *port.record;
        return waitsLeft > 0 || record.charDelay > 0 || record.escapeFunc.load() != nullptr;
    };
    for (;;) {
        int32_t before = transfer.transferCount;
        Chunk chunk = appendRun(*port.record, transfer, byteByByte() ? 1 : bytesALook);
        countBytes(port, transfer, transfer.transferCount - before);
        if (chunk == Chunk::atEnd || chunk == Chunk::unreadable)
            return chunk;
        bool escaped = !pauseAfterByte(port, transfer, waitsLeft);
        if (gone(port, transfer))
            return Chunk::gone;
        bool lastOfStep = chunk == Chunk::full && transfer.sendChunkSize > 1;
        if (!escaped && lastOfStep)
            return Chunk::full;
        escaped = escaped || checkEscape(port, port.record->escapeChar) == 1;
        if (gone(port, transfer)) // what a message led to may have ended it
            return Chunk::gone;
        if (escaped)
            return Chunk::escaped;
        if (chunk == Chunk::full) // of a byte: without the look above it would never be escaped
            return Chunk::full;
    }
}

void addEndMarker(TextTransfer& transfer) noexcept {
    transfer.block[static_cast<std::size_t>(transfer.transferCount++)] = endMarker;
    transfer.ending = true;
}

/// Makes the next chunk. False: there can be none.
bool makeChunk(Port& port, TextTransfer& transfer) {
    transfer.transferCount = 0;
    transfer.sent = 0;
    Chunk chunk = fillChunk(port, transfer);
    if (chunk == Chunk::unreadable || chunk == Chunk::gone)
        return false;
    if (chunk != Chunk::full)
        addEndMarker(transfer);
    return true;
}

/// Offers the port the bytes of the chunk up to an end, as far as it has not taken them yet. False: it takes
/// none any more.
bool queueUpTo(Port& port, TextTransfer& transfer, int32_t end) {
    int32_t rest = end - transfer.sent;
    if (rest < 1)
        return true;
    // A scrambled port changes all the bytes it is offered, also those that it does not take.
    decltype(transfer.block) copy;
    std::copy_n(transfer.block.begin() + transfer.sent, rest, copy.begin());
    bool foreign = port.record->writeFunc.load() != nullptr;
    int32_t taken = ifNotOver(port, transfer, foreign, [&] { return write(port, copy.data(), rest); });
    transfer.sent += std::clamp(taken, 0, rest);
    return taken >= 0 && port.writeRefused == 0;
}

/// What the port has not taken of the chunk yet; the end marker goes by itself.
bool queueChunk(Port& port, TextTransfer& transfer) {
    int32_t text = transfer.transferCount - (transfer.ending ? 1 : 0);
    if (transfer.sent < text && !queueUpTo(port, transfer, text))
        return false;
    return transfer.sent < text || queueUpTo(port, transfer, transfer.transferCount);
}

int32_t finish(Port& port, TextTransfer& transfer) {
    tellEnd(port, transfer);
    transfer.source.reset();
    discardAtEnd(port, transfer, 0);
    return 1;
}

/// The port has room for a part of the chunk only: the next step goes on with the rest. An escape makes the
/// chunk the last one, a second escape gives it up.
int32_t leaveRest(Port& port, TextTransfer& transfer) {
    int32_t unsent = bytesUnsent(port);
    bool escaped = !waitInStep(port, transfer, backlogWait, Messages::handled,
                               [&port, unsent] { return bytesUnsent(port) < unsent; });
    if (escaped && transfer.ending && !gone(port, transfer))
        return finish(port, transfer);
    if (escaped && !transfer.ending)
        addEndMarker(transfer);
    return stepGoesOn;
}

} // namespace

bool startSend(Port& port, TextTransfer& transfer, const char* name, int32_t chunkSize) {
    transfer.source.emplace(name);
    if (!*transfer.source) {
        takeOut(port, transfer, progress::failed);
        return false;
    }
    forgetRefusal(port);
    transfer.sendChunkSize = std::min(chunkSize, TextTransfer::largestChunk);
    return beginSteps(port, transfer, CarrierLoss::sending);
}

int32_t sendStep(Port& port, TextTransfer& transfer) {
    bool allTaken = transfer.sent == transfer.transferCount;
    if (allTaken && !makeChunk(port, transfer))
        return stepFailed;
    if (!queueChunk(port, transfer))
        return stepFailed;
    if (transfer.sent < transfer.transferCount)
        return leaveRest(port, transfer);
    if (transfer.ending)
        return finish(port, transfer);
    if (int32_t delay = port.record->lineDelay; delay > 0)
        waitInStep(port, transfer, pauseLength(delay), Messages::left, [] { return false; });
    return stepGoesOn;
}

} // namespace brisolt

#include <algorithm>
#include <optional>

#include "platform/clock.h"
#include "script/peek.h"
#include "stream/reading.h"
#include "transfer/progress.h"
#include "transfer/text_receive.h"

namespace brisolt {

namespace {

constexpr int32_t stoppedByUser = 1, endCharCame = 2, lineQuiet = 3;

/// A line that never falls silent must not keep a step for ever: whoever wants the thread of a transfer to
/// stop is heard between two steps.
constexpr int32_t blocksPerStep = 100;

int32_t finish(Port& port, TextTransfer& transfer, int32_t result) {
    bool kept = transfer.target->close();
    tellEnd(port, transfer);
    discardAtEnd(port, transfer, port.record->flushDelay);
    return kept ? result : stepFailed;
}

bool beenQuiet(const TextTransfer& transfer) noexcept {
    auto patience = static_cast<uint32_t>(transfer.rxQuietTimeout);
    return transfer.rxQuietTimeout > 0 && clock::ticks() - transfer.rxLastData > patience;
}

/// Where the end character is among the bytes that wait, as far as the ring tells: it holds neither what a
/// function of the caller's delivers nor the clear bytes of a scrambled port.
std::optional<int32_t> endInRing(Port& port, const TextTransfer& transfer) {
    bool tells = port.record->scrambleOn != 1 && port.record->readFunc.load() == nullptr;
    int32_t position = 0;
    if (tells && peekChar(port, transfer.rxEndChar, &position, "ComPeekChar") == 1)
        return position;
    return std::nullopt;
}

int32_t endInBlock(const TextTransfer& transfer, int32_t count) noexcept {
    auto begin = transfer.block.begin();
    auto isEnd = [&transfer](uint8_t byte) { return byte == transfer.rxEndChar; };
    return static_cast<int32_t>(std::find_if(begin, begin + count, isEnd) - begin);
}

/// What became of a block.
enum class Block { none, written, last, lost };

/// Moves a block from the port to the file, up to the end character.
Block moveBlock(Port& port, TextTransfer& transfer, int32_t waiting) {
    std::optional<int32_t> end = endInRing(port, transfer);
    bool last = end && *end < TextTransfer::blockSize;
    int32_t wanted = last ? *end : std::min(waiting, TextTransfer::blockSize);
    int32_t got = 0;
    if (wanted > 0) {
        bool foreign = port.record->readFunc.load() != nullptr;
        auto take = [&] { return read(port, transfer.block.data(), wanted); };
        int32_t taken = ifNotOver(port, transfer, foreign, take);
        if (taken < 0 && gone(port, transfer))
            return Block::lost;
        got = std::clamp(taken, 0, wanted);
    }
    int32_t text = endInBlock(transfer, got);
    if (!transfer.target->write(transfer.block.data(), text))
        return Block::lost;
    countBytes(port, transfer, text);
    transfer.transferCount += text;
    if (last || text < got)
        return Block::last;
    return got > 0 ? Block::written : Block::none;
}

} // namespace

bool startReceive(Port& port, TextTransfer& transfer, const char* name, int32_t endChar) {
    transfer.target.emplace(name);
    if (!*transfer.target) {
        takeOut(port, transfer, progress::failed);
        return false;
    }
    transfer.rxEndChar = endChar;
    transfer.rxLastData = clock::ticks();
    return beginSteps(port, transfer, CarrierLoss::receiving);
}

int32_t receiveStep(Port& port, TextTransfer& transfer) {
    for (int32_t i = 0; i < blocksPerStep; ++i) {
        bool escaped = checkEscape(port, port.record->escapeChar) == 1;
        if (gone(port, transfer))
            return stepFailed;
        if (escaped)
            return finish(port, transfer, stoppedByUser);
        int32_t waiting = bytesWaiting(port);
        if (waiting < 1)
            return beenQuiet(transfer) ? finish(port, transfer, lineQuiet) : stepGoesOn;
        transfer.rxLastData = clock::ticks();
        switch (moveBlock(port, transfer, waiting)) {
        case Block::last: return finish(port, transfer, endCharCame);
        case Block::lost: return stepFailed;
        case Block::none: return stepGoesOn;
        case Block::written: break;
        }
    }
    return stepGoesOn;
}

} // namespace brisolt

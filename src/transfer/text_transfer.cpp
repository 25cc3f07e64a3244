#include "transfer/text_transfer.h"

#include <algorithm>

#include "port/port_table.h"
#include "stream/stream_settings.h"
#include "transfer/progress.h"
#include "transfer/text_receive.h"
#include "transfer/text_send.h"

namespace brisolt {

namespace {

/// How many transfers have begun on each port, over all its lives.
std::array<std::atomic<uint32_t>, lastPort + 1> transfersBegun{};

uint32_t latestTransfer(const Port& port) noexcept {
    return transfersBegun[static_cast<std::size_t>(port.number)];
}

void setCarrierLoss(Port& port, CarrierLoss protocol) noexcept {
    port.record->carrierLossProtocol = static_cast<int32_t>(protocol);
    port.record->carrierLossState = 1;
}

void closeFiles(TextTransfer& transfer) noexcept {
    transfer.source.reset();
    transfer.target.reset();
}

int32_t makeStep(Port& port, TextTransfer& transfer) {
    if (gone(port, transfer))
        return stepFailed;
    int32_t result = transfer.direction == TextTransfer::Direction::send ? sendStep(port, transfer)
                                                                         : receiveStep(port, transfer);
    bool cutShort = result == stepGoesOn ? gone(port, transfer) : port.ending();
    return cutShort ? stepFailed : result;
}

/// As ComFlush with a delay of its own, if what comes is still nobody's by then.
template <class Unwanted> void discardAfter(Port& port, int32_t seconds, Unwanted unwanted) {
    bool foreign = port.record->flushFunc.load() != nullptr;
    if (!foreign)
        yieldPause(port, static_cast<uint32_t>(std::clamp<int64_t>(seconds, 0, UINT32_MAX / 1000) * 1000));
    auto discard = [&] {
        if (unwanted())
            flushReceived(port, 0);
    };
    if (foreign)
        return discard();
    HeldLock lock(port); // nor does a transfer begin or end meanwhile
    discard();
}

} // namespace

void countTransfer(Port& port) noexcept {
    HeldLock lock(port); // no discard is under way
    ++transfersBegun[static_cast<std::size_t>(port.number)];
}

void discardAtEnd(Port& port, const TextTransfer& transfer, int32_t seconds) {
    discardAfter(port, seconds, [&transfer] { return transfer.over == 0; });
}

std::shared_ptr<TextTransfer> enterTransfer(Port& port, TextTransfer::Direction direction) {
    HeldLock lock(port);
    if (port.transfer != nullptr || port.ending())
        return nullptr;
    port.transfer = std::make_shared<TextTransfer>(direction);
    return port.transfer;
}

void countBytes(Port& port, const TextTransfer& transfer, int32_t count) {
    HeldLock lock(port); // once it is over the record is the next one's
    if (transfer.over == 0)
        progress::addBytes(port, static_cast<uint32_t>(count));
}

void tellEnd(Port& port, const TextTransfer& transfer) {
    HeldLock lock(port);
    if (transfer.over == 0)
        setCarrierLoss(port, CarrierLoss::over);
}

bool beginSteps(Port& port, TextTransfer& transfer, CarrierLoss protocol) {
    HeldLock lock(port);
    if (transfer.over != 0)
        return false;
    countTransfer(port);
    progress::clear(port);
    if (transfer.threaded != 0)
        progress::setCompletion(port, progress::running);
    setCarrierLoss(port, transfer.threaded != 0 ? CarrierLoss::onThread : protocol);
    transfer.inStep = 0;
    return true;
}

std::shared_ptr<TextTransfer> transferOf(Port& port, TextTransfer::Direction direction) noexcept {
    HeldLock lock(port);
    bool fits = port.transfer != nullptr && port.transfer->direction == direction;
    return fits ? port.transfer : nullptr;
}

bool takeOut(Port& port, TextTransfer& transfer, uint32_t outcome) {
    std::shared_ptr<TextTransfer> taken; // goes without the lock
    {
        HeldLock lock(port);
        if (port.transfer.get() != &transfer)
            return false;
        taken.swap(port.transfer);
        transfer.over = 1;
        if (transfer.threaded != 0)
            progress::setCompletion(port, outcome);
    }
    port.events.wakeAll(); // a step that waits has nothing to wait for
    return true;
}

int32_t nextStep(Port& port, TextTransfer& transfer) {
    if (transfer.inStep.exchange(1) != 0)
        return gone(port, transfer) ? stepFailed : stepGoesOn; // whoever ends a transfer keeps the turn
    int32_t result = stepFailed;
    try {
        result = makeStep(port, transfer);
    } catch (...) { // memory ran out inside: the turn goes back all the same
        result = stepFailed;
    }
    if (result != stepGoesOn)
        closeFiles(transfer);
    transfer.inStep = 0;
    if (result != stepGoesOn)
        takeOut(port, transfer, result == stepFailed ? progress::failed : progress::finished);
    return result;
}

// What has begun by now shares the line with the transfer, what begins later has it for itself.
int32_t endEarly(Port& port, const TextTransfer* only) {
    std::shared_ptr<TextTransfer> transfer;
    uint32_t latest = 0;
    {
        HeldLock lock(port);
        if (only != nullptr && port.transfer.get() != only)
            return 1; // whoever has ended it does the rest
        transfer = port.transfer;
        latest = latestTransfer(port);
        if (transfer != nullptr)
            takeOut(port, *transfer, progress::failed);
    }
    if (transfer != nullptr && transfer->inStep.exchange(1) == 0)
        closeFiles(*transfer);
    transfer.reset(); // a step that is being made closes them as soon as it sees
    auto noneBegan = [&port, latest] { return latestTransfer(port) == latest; };
    discardAfter(port, port.record->flushDelay, noneBegan);
    pause(port, pauseLength(port.record->lineDelay));
    discardAfter(port, port.record->flushDelay, noneBegan);
    return port.ending() ? -1 : 1;
}

} // namespace brisolt

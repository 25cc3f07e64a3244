#include "transfer/text_transfer.h"

#include <algorithm>

#include "port/port_table.h"
#include "port/stream_settings.h"
#include "transfer/progress.h"
#include "transfer/text_receive.h"
#include "transfer/text_send.h"

namespace brisolt {

namespace {

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

} // namespace

void setCarrierLoss(Port& port, CarrierLoss protocol) noexcept {
    port.record->carrierLossProtocol = static_cast<int32_t>(protocol);
    port.record->carrierLossState = 1;
}

std::shared_ptr<TextTransfer> enterTransfer(Port& port, TextTransfer::Direction direction) {
    auto transfer = std::make_shared<TextTransfer>(direction);
    HeldLock lock(port);
    if (port.transfer != nullptr || port.ending())
        return nullptr;
    port.transfer = transfer;
    return transfer;
}

bool beginSteps(Port& port, TextTransfer& transfer, CarrierLoss protocol) {
    HeldLock lock(port);
    if (transfer.over != 0)
        return false;
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

int32_t endEarly(Port& port, std::shared_ptr<TextTransfer> transfer) {
    if (transfer != nullptr && takeOut(port, *transfer, progress::failed) &&
        transfer->inStep.exchange(1) == 0)
        closeFiles(*transfer);
    transfer.reset(); // a step that is being made closes them as soon as it sees
    flushReceived(port, port.record->flushDelay);
    pause(port, pauseLength(port.record->lineDelay));
    flushReceived(port, port.record->flushDelay);
    return port.ending() ? -1 : 1;
}

int32_t endEarly(Port& port) {
    std::shared_ptr<TextTransfer> transfer;
    {
        HeldLock lock(port);
        transfer = port.transfer;
    }
    return endEarly(port, std::move(transfer));
}

} // namespace brisolt

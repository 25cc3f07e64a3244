#include "transfer/transfer_thread.h"

#include <memory>
#include <new>
#include <utility>

#include "platform/thread.h"
#include "port/port_table.h"
#include "transfer/progress.h"
#include "transfer/text_receive.h"
#include "transfer/text_send.h"

namespace brisolt {

namespace {

constexpr uint32_t stepPace = 25; ///< milliseconds
constexpr int32_t chunkSize = 25;
constexpr int32_t endChar = 26;

struct Start {
    Port* port; ///< with a hold, the thread's own
    std::shared_ptr<TextTransfer> transfer;
};

/// A receive stays open for the caller to end; of a send nobody else would.
void stop(Port& port, TextTransfer& transfer) {
    if (transfer.direction == TextTransfer::Direction::send) {
        endEarly(port, &transfer);
        return;
    }
    HeldLock lock(port);
    if (transfer.over == 0) // else somebody has told how it ended
        progress::setCompletion(port, progress::failed);
    transfer.threaded = 0;
}

void run(Port& port, const std::shared_ptr<TextTransfer>& transfer) {
    auto toStop = [&transfer] { return transfer->asciiThreadRun == 0; };
    do {
        waitInStep(port, *transfer, stepPace, Messages::left, toStop);
        if (toStop())
            return stop(port, *transfer);
    } while (nextStep(port, *transfer) == stepGoesOn);
}

void threadMain(void* argument) {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    HeldPort port(start->port);
    start->transfer->transferThread = thread::currentId();
    thread::setPriority(thread::currentId(), thread::Priority::aboveNormal);
    try {
        run(*port, start->transfer);
    } catch (...) { // no memory
        takeOut(*port, *start->transfer, progress::failed);
    }
}

bool startThread(Port& port, std::shared_ptr<TextTransfer> transfer) {
    std::unique_ptr<Start> start(new (std::nothrow) Start{&port, std::move(transfer)});
    if (start == nullptr)
        return false;
    table::tryHold(port);
    if (!thread::start(threadMain, start.get(), "brisolt-transfer")) {
        table::letGo(port);
        return false;
    }
    (void)start.release(); // the thread's
    return true;
}

/// A file of no name cannot be opened.
bool start(Port& port, TextTransfer& transfer, const char* name) {
    if (name == nullptr || *name == 0)
        return false;
    return transfer.direction == TextTransfer::Direction::send ? startSend(port, transfer, name, chunkSize)
                                                               : startReceive(port, transfer, name, endChar);
}

} // namespace

int32_t transferOnThread(Port& port, TextTransfer::Direction direction, const char* name) {
    if (port.record->ioMode == ioDirect)
        return -1;
    std::shared_ptr<TextTransfer> transfer;
    try {
        transfer = enterTransfer(port, direction);
    } catch (const std::bad_alloc&) {
        progress::setCompletion(port, progress::failed);
        return -1;
    }
    if (transfer == nullptr)
        return -1;
    // From here on it is the thread's outcome that is told, whoever ends the transfer.
    transfer->threaded = 1;
    transfer->asciiThreadRun = 1;
    if (start(port, *transfer, name)) {
        if (startThread(port, transfer))
            return 1;
    }
    takeOut(port, *transfer, progress::failed);
    return -1;
}

void stopTransferThread(Port& port) {
    {
        HeldLock lock(port);
        if (port.transfer != nullptr)
            port.transfer->asciiThreadRun = 0;
    }
    port.events.wakeAll();
}

} // namespace brisolt

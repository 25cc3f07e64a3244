// Text transfer.
#include <algorithm>

#include "api/border.h"
#include "brisolt/transfer.h"
#include "port/waits.h"
#include "transfer/text_receive.h"
#include "transfer/text_send.h"
#include "transfer/transfer_thread.h"

using namespace brisolt;
using Direction = TextTransfer::Direction;

namespace {

bool noName(const char* name) noexcept {
    return name == nullptr || *name == 0;
}

int32_t startSending(int32_t port, const char* name, int32_t chunkSize) noexcept {
    if (noName(name))
        return -1;
    return onPort(port, -1, [=](Port& open) {
        auto transfer = enterTransfer(open, Direction::send);
        return transfer != nullptr && startSend(open, *transfer, name, chunkSize) ? 1 : -1;
    });
}

int32_t startReceiving(int32_t port, const char* name, int32_t endChar) noexcept {
    if (noName(name))
        return -1;
    return onPort(port, -1, [=](Port& open) {
        auto transfer = enterTransfer(open, Direction::receive);
        return transfer != nullptr && startReceive(open, *transfer, name, endChar) ? 1 : -1;
    });
}

int32_t makeStep(int32_t port, Direction direction) noexcept {
    return onPort(port, -1, [=](Port& open) {
        auto transfer = transferOf(open, direction);
        return transfer != nullptr ? nextStep(open, *transfer) : stepFailed;
    });
}

int32_t abortTransfer(int32_t port) noexcept {
    return onPort(port, -1, [](Port& open) { return endEarly(open); });
}

int32_t startThread(int32_t port, Direction direction, const char* name) noexcept {
    return onPort(port, -1, [=](Port& open) { return transferOnThread(open, direction, name); });
}

} // namespace

// ---- in one call

BRISOLT_EXPORT int32_t ComSendA(int32_t port, const char* name) {
    if (noName(name))
        return -1;
    return onPort(port, -1, [=](Port& open) { return sendFile(open, name); });
}
BRISOLT_EXPORT int32_t ComRecvA(int32_t port, const char* name, int32_t escape, int32_t endChar,
                                int32_t timeout) {
    bool complete = escape > 0 && endChar >= 0 && timeout > 0 && !noName(name);
    return onPort(port, -1, [=](Port& open) {
        clearCancel(open);
        return complete ? receiveFile(open, name, escape, endChar, timeout) : -1;
    });
}

// ---- step by step

BRISOLT_EXPORT int32_t CInitSndAPkt(int32_t port, const char* name, int32_t chunkSize) {
    return startSending(port, name, chunkSize);
}
BRISOLT_EXPORT int32_t ComSA_Start(int32_t port, const char* name, int32_t chunkSize) {
    return startSending(port, name, chunkSize);
}
BRISOLT_EXPORT int32_t CSendAPkt(int32_t port) {
    return makeStep(port, Direction::send);
}
BRISOLT_EXPORT int32_t ComSA_Next(int32_t port) {
    return makeStep(port, Direction::send);
}

BRISOLT_EXPORT int32_t CInitRcvAPkt(int32_t port, const char* name, int32_t, int32_t endChar, int32_t) {
    return startReceiving(port, name, endChar);
}
BRISOLT_EXPORT int32_t ComRA_Start(int32_t port, const char* name, int32_t, int32_t endChar, int32_t) {
    return startReceiving(port, name, endChar);
}
BRISOLT_EXPORT int32_t CRecvAPkt(int32_t port) {
    return makeStep(port, Direction::receive);
}
BRISOLT_EXPORT int32_t ComRA_Next(int32_t port) {
    return makeStep(port, Direction::receive);
}

BRISOLT_EXPORT int32_t CTermAPkt(int32_t port) {
    return abortTransfer(port);
}
BRISOLT_EXPORT int32_t ComRA_Abort(int32_t port) {
    return abortTransfer(port);
}
BRISOLT_EXPORT int32_t ComSA_Abort(int32_t port) {
    return abortTransfer(port);
}

// ---- on a thread

BRISOLT_EXPORT int32_t ComSA_Thread(int32_t port, const char* name) {
    return startThread(port, Direction::send, name);
}
BRISOLT_EXPORT int32_t ComRA_Thread(int32_t port, const char* name) {
    return startThread(port, Direction::receive, name);
}
BRISOLT_EXPORT int32_t ComA_Thread_Abort(int32_t port) {
    return onPort(port, 1, [](Port& open) {
        stopTransferThread(open);
        return 1;
    });
}

// ---- beside them

BRISOLT_EXPORT int32_t ComRead_ASCII(int32_t port, char* buffer, int32_t count) {
    if (buffer == nullptr)
        return 0;
    int32_t kept = count < 1 ? 0 : onPort(port, 0, [=](Port& open) { return readText(open, buffer, count); });
    if (kept == 0)
        *buffer = 0;
    return kept;
}
BRISOLT_EXPORT int32_t ComSizeA(const char* name) {
    if (noName(name))
        return -1;
    int64_t size = file::Reader(name, file::Sharing::all).size();
    return static_cast<int32_t>(std::min<int64_t>(size, INT32_MAX));
}

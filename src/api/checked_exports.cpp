// Everyday calls with a check of the port in front, and calls that show how arguments arrive.
#include "brisolt/checked.h"

#include <algorithm>
#include <cstring>

#include "api/border.h"
#include "brisolt/lines.h"
#include "brisolt/modem.h"
#include "brisolt/ports.h"
#include "brisolt/stream.h"
#include "brisolt/transfer.h"
#include "port/waits.h"

using namespace brisolt;

namespace {

// ---- opening

int32_t open(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity, int32_t stopBits) noexcept {
    constexpr uint32_t ringSize = 4096;
    constexpr int32_t alreadyOpen = -2;
    int32_t result = ComOpen("COM", port, baudRate, dataBits, parity, stopBits, ringSize, ringSize);
    return result == alreadyOpen ? -1 : result;
}

// ---- forwarding

bool isOpen(int32_t port) noexcept {
    return static_cast<bool>(HeldPort(port));
}

/// Nothing is held while the function runs: it holds the port itself, and a close is to be the last to let
/// go.
template <auto Function, class... Arguments> int32_t checked(int32_t port, Arguments... arguments) noexcept {
    return isOpen(port) ? Function(port, arguments...) : -1;
}

// ---- how arguments arrive

bool is(const char* text, const char* expected) noexcept {
    return text != nullptr && std::strcmp(text, expected) == 0;
}

int32_t arrived(bool asExpected) noexcept {
    return asExpected ? 0 : -1;
}

} // namespace

BRISOLT_EXPORT int32_t COpen(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                             int32_t stopBits) {
    return open(port, baudRate, dataBits, parity, stopBits);
}
BRISOLT_EXPORT int32_t COpen2(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                              int32_t stopBits) {
    return open(port, baudRate, dataBits, parity, stopBits);
}

// name, the function behind it, its parameters, their names
#define FORWARD(name, function, parameters, ...) \
    BRISOLT_EXPORT int32_t name parameters {     \
        return checked<function>(__VA_ARGS__);   \
    }

FORWARD(CBreak, ComBreak, (int32_t port), port)
FORWARD(CCarrier, ComCarrier, (int32_t port), port)
FORWARD(CClose, ComClose, (int32_t port), port)
FORWARD(CDial, ComDial, (int32_t port, const char* number), port, number)
FORWARD(CDisc, ComDisc, (int32_t port), port)
FORWARD(CDTR, ComDTR, (int32_t port), port)
FORWARD(CFlush, ComFlush, (int32_t port), port)
FORWARD(CGetc, ComGetc, (int32_t port), port)
FORWARD(CPutc, ComPutc, (int32_t port, int32_t character), port, character)
FORWARD(CPuts, ComPuts, (int32_t port, const char* text), port, text)
FORWARD(CRead, ComRead, (int32_t port, void* buffer, int32_t count), port, buffer, count)
FORWARD(CReadTimed, ComReadTimed, (int32_t port, void* buffer, int32_t count, int32_t timeout), port, buffer,
        count, timeout)
FORWARD(CRecvA, ComRecvA, (int32_t port, const char* name, int32_t escape, int32_t endChar, int32_t timeout),
        port, name, escape, endChar, timeout)
FORWARD(CReset, ComReset, (int32_t port), port)
FORWARD(CRing, ComRing, (int32_t port), port)
FORWARD(CSendA, ComSendA, (int32_t port, const char* name), port, name)
FORWARD(CSetAns, ComSetAns, (int32_t port, int32_t on), port, on)
FORWARD(CSetBaud, ComSetBaud, (int32_t port, int32_t baudRate), port, baudRate)
FORWARD(CSetBits, ComSetBits, (int32_t port, int32_t dataBits), port, dataBits)
FORWARD(CSetFlow, ComSetFlow, (int32_t port, int32_t mode), port, mode)
FORWARD(CSetPar, ComSetPar, (int32_t port, int32_t parity), port, parity)
FORWARD(CSetParms, ComSetParms, (int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits), port,
        parity, dataBits, stopBits)
FORWARD(CSetStop, ComSetStop, (int32_t port, int32_t stopBits), port, stopBits)
FORWARD(CStatus, ComStatus, (int32_t port), port)
FORWARD(CWrite, ComWrite, (int32_t port, void* buffer, int32_t count), port, buffer, count)

BRISOLT_EXPORT int32_t CBuffer(int32_t port, int32_t value) {
    return onPort(port, -1, [=](Port& open) {
        open.workArea->callersWord = value;
        return 1;
    });
}

// ---- how arguments arrive

BRISOLT_EXPORT int32_t Ctest(void) {
    return 0;
}
BRISOLT_EXPORT int32_t Ctestint(int32_t value) {
    return arrived(value == 1);
}
BRISOLT_EXPORT int32_t Cteststring(const char* text) {
    return arrived(is(text, "ABC"));
}
BRISOLT_EXPORT int32_t Ctest3string(const char* text1, const char* text2, const char* text3) {
    return arrived(is(text1, "ABC") && is(text2, "DEF") && is(text3, "GHI"));
}
BRISOLT_EXPORT int32_t Ctest1string(int32_t value1, const char* text, int32_t value2) {
    return arrived(value1 == 1 && is(text, "ABC") && value2 == 3);
}

BRISOLT_EXPORT int32_t Ctestyield(int32_t seconds) {
    auto milliseconds = std::clamp<int64_t>(int64_t{seconds} * 1000, 0, UINT32_MAX);
    try {
        pumpMessagesUntil(clock::Deadline::in(static_cast<uint32_t>(milliseconds)));
    } catch (...) { // NOLINT(bugprone-empty-catch): without memory for a queue there are no messages
    }
    return 1;
}

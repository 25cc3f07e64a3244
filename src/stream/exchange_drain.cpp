// ComHostDrain: until all that was written has left on the line. What is in the ring is sent by whoever waits;
// for the device's own queue and its shift register no host tells, so it is asked when it may have got there.
#include <algorithm>

#include "platform/signal_gate.h"
#include "port/half_duplex.h"
#include "port/io_thread.h"
#include "port/port_table.h"
#include "port/waits.h"
#include "stream/exchange.h"

namespace brisolt::exchange {

namespace {

constexpr uint32_t longestLook = 100; ///< milliseconds between two looks at a slow line

/// When that many bytes may have left.
uint32_t millisecondsFor(Port& port, int64_t bytes) noexcept {
    constexpr int64_t bitsPerByte = 10;
    int64_t rate = std::max<int64_t>(port.record->baudRate, 1); // waits for nobody who changes the line
    return static_cast<uint32_t>(std::clamp<int64_t>(bytes * bitsPerByte * 1000 / rate, 1, longestLook));
}

/// In the rings, on its way, and in the device; in the order of the way out, so that what moves on is not missed.
int64_t heldHere(const Port& port) noexcept {
    int64_t queued = port.tx.count();
    int64_t staged = port.staged + (port.writers.taken() ? 1 : 0) + (port.halfDuplex == rtsRaised ? 1 : 0);
    return queued + staged + (port.hasDevice() ? port.device.unsent() : 0);
}

int64_t notLeft(const Port& port) noexcept {
    if (ComPortFunc function = port.record->outBufStatusFunc)
        return std::max(function(port.number), 0);
    return heldHere(port);
}

} // namespace

int32_t drain(Port& port, int32_t milliseconds, bool signalsEnd) {
    if (!port.isOpen())
        return -1;
    Call call(port, milliseconds);
    const bool programs = port.record->outBufStatusFunc.load() != nullptr; // which would run behind the gate
    const SignalGate gate(signalsEnd && !programs && port.device.sleepsItself());
    if (onIoThread(port) && mayStartSending(port) && !port.tx.empty())
        sendHalfDuplex(port); // nobody else could
    for (;;) {
        uint32_t seen = port.events.count();
        if (int32_t end = call.ended(); end != 0)
            return end;
        int64_t left = notLeft(port);
        if (left == 0)
            return 1;
        if (call.until().passed())
            return 0;
        auto look = clock::Deadline::earlier(call.until(), clock::Deadline::in(millisecondsFor(port, left)));
        if (sleepOnPort(port, seen, {.signals = signalsEnd}, look).interrupted)
            return interrupted;
    }
}

// A function of the program's is asked while it is waited for, and no more: it may wait for the very port that is to be
// closed.
bool leftAfter(Port& port, int32_t milliseconds) {
    if (milliseconds != 0 && drain(port, milliseconds, false) == 1)
        return false;
    bool asked = milliseconds != 0 && port.record->outBufStatusFunc.load() != nullptr;
    return asked || heldHere(port) > 0;
}

} // namespace brisolt::exchange

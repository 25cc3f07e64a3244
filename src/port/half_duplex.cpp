#include "port/half_duplex.h"

#include <algorithm>

#include "platform/clock.h"
#include "port/io_round.h"
#include "port/port_table.h"

namespace brisolt {

namespace {

constexpr uint32_t longestStep = 20; ///< milliseconds

void drive(Port& port, bool sending) noexcept {
    bool high = sending == port.device.options().rs485.rtsHigh;
    port.device.line(high ? COM_HOST_LINE_SET_RTS : COM_HOST_LINE_CLEAR_RTS);
    port.halfDuplex = sending ? rtsRaised : rtsLowered;
}

/// A pause that the close of the port ends.
void pauseFor(Port& port, uint32_t milliseconds) noexcept {
    auto until = clock::Deadline::in(milliseconds);
    while (milliseconds > 0 && port.threadRun != 0 && !until.passed()) {
        port.threadWake->prepare();
        if (port.threadRun != 0)
            port.threadWake->sleep(until.realMillisecondsLeft());
        port.threadWake->finish();
    }
}

/// Until the device has room, as far as it tells; whether it said so.
bool awaitRoom(Port& port) noexcept {
    uint32_t held = 0;
    port.threadWake->prepare();
    if (port.threadRun != 0)
        held = port.device.wait(COM_HOST_WAIT_WRITE, port.threadWake->descriptor(),
                                port.device.canWait() ? -1 : static_cast<int32_t>(longestStep));
    port.threadWake->finish();
    return held != 0;
}

/// Hands the device the ring's bytes, waiting for room; false when the port ends or the device has gone.
bool emptyRing(Port& port) noexcept {
    for (bool promised = false; !port.tx.empty() && port.threadRun != 0; promised = awaitRoom(port)) {
        bool moved = false;
        {
            HeldSend lock(port);
            moved = transmitLossless(port);
        }
        if (moved)
            port.events.wakeAll(); // there is room in the ring
        if (port.tx.empty())
            return true;
        if (port.device.state() == COM_HOST_DEVICE_GONE)
            return false;
        // A device that says that it has room and then has none must not keep us running.
        if (promised && !moved)
            pauseFor(port, 1);
    }
    return port.threadRun != 0;
}

/// Until the last bit has left. A device that tells of its queue alone still has a byte or two in its shift
/// register then, so those get the time that they take.
void awaitLastBit(Port& port) noexcept {
    uint32_t rate = std::max<uint32_t>(port.lineStateCopy().baudRate, 1);
    for (int32_t left = port.device.unsent(); left > 0 && port.threadRun != 0; left = port.device.unsent()) {
        auto step = static_cast<uint32_t>(int64_t{left} * 10 * 1000 / rate);
        pauseFor(port, std::clamp<uint32_t>(step, 1, longestStep));
        if (port.device.state() == COM_HOST_DEVICE_GONE)
            return;
    }
}

} // namespace

bool mayStartSending(const Port& port) noexcept {
    return port.halfDuplex != fullDuplex && port.device.state() != COM_HOST_DEVICE_GONE;
}

void sendHalfDuplex(Port& port) {
    const Rs485Options& bus = port.device.options().rs485;
    drive(port, true);
    pauseFor(port, bus.beforeMs);
    while (emptyRing(port)) {
        awaitLastBit(port);
        if (port.tx.empty())
            break;
    }
    pauseFor(port, bus.afterMs);
    drive(port, false);
    port.events.wakeAll(); // whoever waits for the end of it
}

void listenHalfDuplex(Port& port) noexcept {
    if (port.device.options().rs485.mode == Rs485Mode::rts)
        drive(port, false);
}

} // namespace brisolt

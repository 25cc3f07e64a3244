#include "stream/line_settings.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/mutex.h"
#include "port/device_io.h"
#include "port/device_setup.h"
#include "port/waits.h"

namespace brisolt {

namespace {

constexpr int32_t drainSteps = 10;
constexpr uint32_t drainStep = 51; ///< milliseconds

/// Messages are let through when the port's yield is on, but a request to quit does not cut short what is
/// happening on the line. The close does.
void holdLine(Port& port, uint32_t milliseconds) {
    uint32_t start = clock::ticks();
    bool whole = yieldPause(port, milliseconds) > 0;
    uint32_t passed = clock::ticks() - start;
    if (!whole && passed < milliseconds)
        pause(port, milliseconds - passed);
}

/// Changes the copy of the line state and hands the device all of it, in one go: of two threads that change
/// different settings at once neither undoes what the other has done.
template <class Change> int32_t applyLine(Port& port, Change change) {
    drainWait(port);
    port.device.purge(purgeAll);
    MutexLock guard(port.lineMutex);
    change(port.record->lineState);
    port.device.setLineState(port.record->lineState);
    return 1;
}

constexpr uint8_t deviceStopBits[] = {COM_HOST_STOP_1, COM_HOST_STOP_2, COM_HOST_STOP_1_5};

struct Framing {
    int32_t parity, dataBits, stopBits;

    bool known() const noexcept {
        return parity >= 1 && parity <= 5 && dataBits >= 4 && dataBits <= 8 && stopBits >= 1 && stopBits <= 3;
    }
};

Framing framingOf(const PortRecord& record) noexcept {
    return {record.parityCode, record.dataBits, record.stopCode};
}

/// Tells the device what the record holds when its turn has come: others may have changed it meanwhile.
int32_t applyRecorded(Port& port) {
    return applyLine(port, [&port](ComHostLineState& state) {
        Framing framing = framingOf(*port.record);
        if (!framing.known())
            return;
        state.parity = static_cast<uint8_t>(framing.parity - 1);
        state.dataBits = static_cast<uint8_t>(framing.dataBits);
        state.stopBits = deviceStopBits[framing.stopBits - 1];
    });
}

} // namespace

void drainWait(Port& port) {
    for (int32_t step = 0; step < drainSteps && !port.ending(); ++step) {
        if (statusRead(port, COM_HOST_WANT_OUT).outQueue == 0)
            return;
        holdLine(port, drainStep);
    }
}

int32_t setBaud(Port& port, int32_t baud) {
    if (!port.isOpen())
        return -1;
    port.record->baudRate = baud;
    if (ComPortValueFunc function = port.record->setBaudFunc)
        return function(port.number, baud);
    if (!port.hasDevice())
        return -1;
    return applyLine(port, [baud](ComHostLineState& state) { state.baudRate = static_cast<uint32_t>(baud); });
}

int32_t setParms(Port& port, int32_t parity, int32_t dataBits, int32_t stopBits) {
    if (!port.isOpen())
        return -1;
    PortRecord& record = *port.record;
    if (ComSetParmsFunc function = record.setParmsFunc)
        return function(port.number, parity, dataBits, stopBits);
    if (!Framing{parity, dataBits, stopBits}.known() || !port.hasDevice())
        return -1;
    record.parityCode = parity;
    record.dataBits = dataBits;
    record.stopCode = stopBits;
    return applyRecorded(port);
}

int32_t applyFraming(Port& port) {
    if (!port.isOpen())
        return -1;
    Framing framing = framingOf(*port.record);
    if (ComSetParmsFunc function = port.record->setParmsFunc)
        return function(port.number, framing.parity, framing.dataBits, framing.stopBits);
    return framing.known() && port.hasDevice() ? applyRecorded(port) : -1;
}

int32_t setBreak(Port& port, bool on) {
    if (!port.hasDevice())
        return -1;
    port.device.line(on ? COM_HOST_LINE_SET_BREAK : COM_HOST_LINE_CLEAR_BREAK);
    return 1;
}

int32_t sendBreak(Port& port) {
    if (!port.isOpen())
        return -1;
    if (ComPortFunc function = port.record->breakFunc)
        return function(port.number);
    if (setBreak(port, true) < 0)
        return -1;
    holdLine(port, pauseLength(port.record->breakTime));
    int32_t result = setBreak(port, false);
    return port.ending() ? -1 : result;
}

int32_t pulseDtr(Port& port) {
    if (!port.isOpen() || port.record->portNumber < 1)
        return -1;
    if (ComPortFunc function = port.record->dtrFunc)
        return function(port.number);
    if (!port.hasDevice())
        return -1;
    port.device.line(COM_HOST_LINE_CLEAR_DTR);
    holdLine(port, pauseLength(port.record->dtrPulseTime));
    if (port.ending())
        return -1; // a close leaves DTR low
    port.device.line(COM_HOST_LINE_SET_DTR);
    return 1;
}

} // namespace brisolt

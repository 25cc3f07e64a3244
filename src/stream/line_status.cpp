#include "stream/line_status.h"

#include "port/device_io.h"

namespace brisolt {

namespace {

int32_t modemLine(Port& port, ComPortFunc driverFunction, uint32_t line, int32_t unreadable) {
    if (!port.isOpen())
        return -1;
    if (driverFunction != nullptr)
        return driverFunction(port.number);
    uint32_t lines = 0;
    if (!port.device.modemStatus(lines))
        return unreadable;
    return (lines & line) != 0 ? 1 : 0;
}

} // namespace

int32_t carrier(Port& port) {
    return modemLine(port, port.record->carrierFunc, COM_HOST_MODEM_CARRIER, -1);
}

int32_t clearToSend(Port& port) {
    return modemLine(port, port.record->getCtsStatusFunc, COM_HOST_MODEM_CTS, 0);
}

int32_t dataSetReady(Port& port) {
    return modemLine(port, port.record->getDsrStatusFunc, COM_HOST_MODEM_DSR, 0);
}

int32_t carrierLatch(const Port& port) noexcept {
    return (port.record->statusFlags & statusCarrierLatched) != 0 ? 1 : 0;
}

int32_t setCarrierLatch(Port& port, bool on) noexcept {
    if (on)
        port.record->statusFlags.orIn(statusCarrierLatched);
    else
        port.record->statusFlags.andIn(~statusCarrierLatched);
    return 1;
}

// The device is asked first: a break on a line that brings no bytes makes no round that would see it.
int32_t takeBreakSeen(Port& port) {
    if (!port.isOpen())
        return -1;
    if (ComPortFunc function = port.record->getBreakStatusFunc)
        return function(port.number);
    if (port.hasDevice())
        statusRead(port);
    return (port.record->statusFlags.andIn(~statusBreakSeen) & statusBreakSeen) != 0 ? 1 : 0;
}

} // namespace brisolt

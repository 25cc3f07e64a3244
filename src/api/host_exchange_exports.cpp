// The exported functions that write, read and wait without polling.
#include "api/border.h"
#include "brisolt_host.h"
#include "stream/exchange.h"

using namespace brisolt;

BRISOLT_EXPORT int32_t ComHostWrite(int32_t port, const void* buffer, int32_t count, int32_t milliseconds) {
    return onPort(port, -1, [&](Port& open) { return exchange::write(open, buffer, count, milliseconds); });
}

BRISOLT_EXPORT int32_t ComHostRead(int32_t port, void* buffer, int32_t count, int32_t milliseconds) {
    return onPort(port, -1, [&](Port& open) { return exchange::read(open, buffer, count, milliseconds); });
}

BRISOLT_EXPORT int32_t ComHostDescriptor(int32_t port) {
    return onPort(port, -1, exchange::descriptor);
}

BRISOLT_EXPORT int32_t ComHostDrain(int32_t port, int32_t milliseconds) {
    return onPort(port, -1, [milliseconds](Port& open) { return exchange::drain(open, milliseconds); });
}

BRISOLT_EXPORT int32_t ComHostGetPortState(int32_t port) {
    return onPort(port, 0, [](Port& open) {
        return !open.isOpen() ? 0 : open.hasDevice() ? open.device.state() : COM_HOST_DEVICE_THERE;
    });
}

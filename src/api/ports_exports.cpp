// Opening, closing, control lines, and the settings of the I/O thread.
#include <algorithm>

#include "api/border.h"
#include "brisolt/ports.h"
#include "platform/clock.h"
#include "port/flow.h"
#include "port/io_thread.h"
#include "port/open_close.h"
#include "stream/stream_settings.h"

using namespace brisolt;

namespace {

template <class F> int32_t opened(F&& open) noexcept {
    try {
        return open();
    } catch (...) {
        return -20; // the only thing thrown here is that memory is out
    }
}

} // namespace

BRISOLT_EXPORT int32_t ComOpen(const char* deviceName, int32_t port, int32_t baudRate, int32_t dataBits,
                               int32_t parity, int32_t stopBits, uint32_t rxBufSize, uint32_t txBufSize) {
    return opened([&] {
        return openPort({deviceName, port, baudRate, dataBits, parity, stopBits, rxBufSize, txBufSize});
    });
}

BRISOLT_EXPORT int32_t ComPreOpen(const char* deviceName, int32_t port, int32_t baudRate, int32_t dataBits,
                                  int32_t parity, int32_t stopBits, uint32_t rxBufSize, uint32_t txBufSize,
                                  int32_t deviceHandle) {
    return opened([&] {
        return openPortOn({deviceName, port, baudRate, dataBits, parity, stopBits, rxBufSize, txBufSize},
                          deviceHandle);
    });
}

BRISOLT_EXPORT int32_t CPreOpen(int32_t port, int32_t baudRate, int32_t dataBits, int32_t parity,
                                int32_t stopBits, int32_t deviceHandle) {
    if (!validPort(port))
        return -1;
    return ComPreOpen("COM", port, baudRate, dataBits, parity, stopBits, 4096, 4096, deviceHandle);
}

BRISOLT_EXPORT int32_t ComClose(int32_t port) {
    return onPort(port, -1, closePort);
}

BRISOLT_EXPORT int32_t ComPreClose(int32_t port) {
    return onPort(port, -1, preClosePort);
}

BRISOLT_EXPORT int32_t ComOpenState(int32_t port) {
    return onPort(port, 0, [](Port& open) { return open.isOpen() ? 1 : 0; });
}

BRISOLT_EXPORT int32_t ComPortdcb(int32_t port) {
    return onPort(port, -1, [](Port& open) { return open.hasDevice() ? open.record->device.load() : -1; });
}

BRISOLT_EXPORT int32_t ComSetFlow(int32_t port, int32_t mode) {
    return onPort(port, -1, [=](Port& open) { return setFlow(open, mode); });
}

BRISOLT_EXPORT int32_t ComSetDTR(int32_t port) {
    return validPort(port) ? onPort(port, -11, setDtr) : -1;
}

BRISOLT_EXPORT int32_t ComSetRTS(int32_t port) {
    return validPort(port) ? onPort(port, -11, setRts) : -1;
}

BRISOLT_EXPORT int32_t ComClearDTR(int32_t port) {
    return onPort(port, -1, clearDtr);
}

BRISOLT_EXPORT int32_t ComClearRTS(int32_t port) {
    return onPort(port, -1, clearRts);
}

BRISOLT_EXPORT int32_t ComSetBackgroundPriority(int32_t port, int32_t level) {
    return onPort(port, 0, [=](Port& open) {
        setIoPriority(open, level);
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComSetBackgroundTimeout(int32_t port, uint32_t milliseconds) {
    return onPort(port, 0, [=](Port& open) {
        open.record->threadSleep = std::min<uint32_t>(milliseconds, 10000);
        open.wakeThread();
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComStartupTime(int32_t port) {
    return onPort(port, 0, [](Port& open) { return static_cast<int32_t>(open.record->openTick.load()); });
}

BRISOLT_EXPORT int32_t ComSuspend(int32_t port) {
    return onPort(port, 0, [](Port& open) {
        open.record->suspendUntil = clock::ticks() + 500;
        open.record->suspended = 1;
        open.events.wakeAll(); // who waits for bytes fetches them itself meanwhile
        return 1;
    });
}

BRISOLT_EXPORT int32_t ComResume(int32_t port) {
    return onPort(port, 0, [](Port& open) {
        open.record->suspended = 0;
        open.record->suspendUntil = 0U;
        open.wakeThread();
        return 1;
    });
}

namespace {
int32_t setWriteThrough(int32_t port, int32_t on) noexcept {
    return onPort(port, 0, [=](Port& open) {
        open.record->writeThru = on;
        return 1;
    });
}
} // namespace

BRISOLT_EXPORT int32_t ComSuspendPortWriteThru(int32_t port) {
    return setWriteThrough(port, 0);
}

BRISOLT_EXPORT int32_t ComResumePortWriteThru(int32_t port) {
    return setWriteThrough(port, 1);
}

BRISOLT_EXPORT int32_t ComOutBufSize(int32_t port) {
    return onPort(port, 0, [](Port& open) { return open.record->txBufSize.load(); });
}

BRISOLT_EXPORT int32_t ComHostSetLossless(int32_t port, int32_t on) {
    return onPort(port, -1, [=](Port& open) { return setLossless(open, on != 0); });
}

// What the kernel counts on a tty, and being told when one of its lines changes.
#include <cerrno>

#include <sys/ioctl.h>

#include "platform/mutex.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

/// The counters now; those of a device that has gone as they were.
bool readCounters(TtyDevice& tty, serial_icounter_struct& now) {
    if (!tty.countsErrors)
        return false;
    MutexLock guard(tty.lock);
    if (ioctl(tty.descriptor, TIOCGICOUNT, &tty.latest) != 0 && lacksFunction(errno)) {
        tty.countsErrors = false;
        return false;
    }
    now = tty.latest;
    return true;
}

uint32_t since(int32_t now, int32_t then) noexcept {
    return static_cast<uint32_t>(now) - static_cast<uint32_t>(then);
}

int32_t linesOf(uint32_t events) noexcept {
    return ((events & COM_HOST_EVENT_CTS) != 0 ? TIOCM_CTS : 0) |
           ((events & COM_HOST_EVENT_DSR) != 0 ? TIOCM_DSR : 0) |
           ((events & COM_HOST_EVENT_CARRIER) != 0 ? TIOCM_CAR : 0) |
           ((events & COM_HOST_EVENT_RING) != 0 ? TIOCM_RNG : 0);
}

constexpr uint32_t lineEvents =
    COM_HOST_EVENT_CTS | COM_HOST_EVENT_DSR | COM_HOST_EVENT_CARRIER | COM_HOST_EVENT_RING;

} // namespace

int32_t counters(void* device, ComHostCounters* counters) noexcept {
    TtyDevice& tty = of(device);
    serial_icounter_struct now{};
    if (!readCounters(tty, now))
        return -ENOTTY;
    const serial_icounter_struct& then = tty.opened;
    counters->cts = since(now.cts, then.cts);
    counters->dsr = since(now.dsr, then.dsr);
    counters->carrier = since(now.dcd, then.dcd);
    counters->ring = since(now.rng, then.rng);
    counters->breaks = since(now.brk, then.brk);
    counters->framing = since(now.frame, then.frame);
    counters->parity = since(now.parity, then.parity);
    counters->overrun = since(now.overrun, then.overrun);
    counters->overflow = since(now.buf_overrun, then.buf_overrun);
    counters->gone = tty.gone;
    counters->back = tty.back;
    return 1;
}

uint32_t watch(void* device, uint32_t events, void (*changed)(void*), void* argument) noexcept try {
    TtyDevice& tty = of(device);
    MutexLock guard(tty.watchMutex);
    tty.lineWatch.reset();
    const int32_t lines = linesOf(events);
    if (lines == 0 || !tty.hasModemLines || !tty.countsErrors)
        return 0;
    tty.lineWatch = LineWatch::start(tty.descriptor, lines, changed, argument);
    return tty.lineWatch != nullptr ? events & lineEvents : 0;
} catch (...) {
    return 0;
}

void watchAgain(TtyDevice& tty) noexcept {
    MutexLock guard(tty.watchMutex);
    if (tty.lineWatch != nullptr)
        tty.lineWatch->again();
}

int32_t state(void* device) noexcept {
    return of(device).hungUp ? COM_HOST_DEVICE_GONE : COM_HOST_DEVICE_THERE;
}

} // namespace brisolt::tty

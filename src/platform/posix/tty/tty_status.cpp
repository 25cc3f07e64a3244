// What a tty tells about itself and the lines beside the bytes: errors, queues, modem lines, break. A device
// that lacks a function is not asked for it again.
#include <algorithm>
#include <cerrno>

#include <sys/ioctl.h>

#include "platform/mutex.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

constexpr uint32_t kernelQueueSize = 4096; // of received bytes

constexpr uint32_t bitIf(bool condition, uint32_t bit) {
    return condition ? bit : 0;
}

/// The kernel's counters only grow; what has grown since the last look has happened since.
uint32_t newErrors(TtyDevice& tty) {
    MutexLock guard(tty.lock);
    serial_icounter_struct now{};
    if (ioctl(tty.descriptor, TIOCGICOUNT, &now) != 0) {
        if (lacksFunction(errno))
            tty.countsErrors = false;
        return 0;
    }
    const serial_icounter_struct then = tty.counters;
    const uint32_t errors = bitIf(now.buf_overrun != then.buf_overrun, COM_HOST_ERROR_RX_OVERFLOW) |
                            bitIf(now.overrun != then.overrun, COM_HOST_ERROR_OVERRUN) |
                            bitIf(now.parity != then.parity, COM_HOST_ERROR_PARITY) |
                            bitIf(now.frame != then.frame, COM_HOST_ERROR_FRAMING) |
                            bitIf(now.brk != then.brk, COM_HOST_ERROR_BREAK);
    tty.counters = now;
    return errors;
}

int32_t askQueue(const TtyDevice& tty, unsigned long request, uint32_t& bytes) {
    int32_t answer = 0;
    if (ioctl(tty.descriptor, request, &answer) != 0)
        return -errno;
    bytes = static_cast<uint32_t>(std::max(answer, 0));
    return 1;
}

int32_t setLine(const TtyDevice& tty, unsigned long request, int32_t line) {
    return ioctl(tty.descriptor, request, &line) == 0 ? 1 : -errno;
}

int32_t request(const TtyDevice& tty, unsigned long request, int32_t argument) {
    return ioctl(tty.descriptor, request, argument) == 0 ? 1 : -errno;
}

/// The kernel resumes only what was stopped by command, so what an XOFF stopped is stopped by command first.
int32_t resume(const TtyDevice& tty) {
    const int32_t stopped = request(tty, TCXONC, TCOOFF);
    return stopped < 0 ? stopped : request(tty, TCXONC, TCOON);
}

/// The lines as they are, 0 where there are none. Negative: error number.
int32_t readLines(TtyDevice& tty, int32_t& lines) {
    if (!tty.hasModemLines)
        return -ENOTTY;
    if (ioctl(tty.descriptor, TIOCMGET, &lines) == 0)
        return 1;
    const int32_t error = errno;
    if (lacksFunction(error))
        tty.hasModemLines = false;
    return -error;
}

} // namespace

int32_t properties(void* device, ComHostProperties* properties) noexcept {
    constexpr uint32_t canDtrDsr = 0x01, canRtsCts = 0x02, canCarrier = 0x04, canXonXoff = 0x10;
    constexpr uint32_t canSetXonXoff = 0x20, canTotalTimeouts = 0x40, canIntervalTimeouts = 0x80;
    const bool lines = of(device).hasModemLines;
    *properties = {};
    properties->size = sizeof *properties;
    properties->packetLength = sizeof *properties;
    properties->packetVersion = 2;
    properties->serviceMask = 1;      // serial communications
    properties->maxBaud = 0x10000000; // any rate can be asked for
    properties->provSubType = 1;      // a plain serial line
    properties->provCapabilities = COM_HOST_CAN_PARITY_CHECK | canXonXoff | canSetXonXoff | canTotalTimeouts |
                                   canIntervalTimeouts | (lines ? canDtrDsr | canRtsCts | canCarrier : 0U);
    properties->settableParams = lines ? 0x7F : 0x5F; // all, but carrier detection without its line
    properties->settableBaud = 0x1007FFFF;            // the usual rates and any other
    return 1;
}

int32_t line(void* device, uint32_t function) noexcept {
    const TtyDevice& tty = of(device);
    switch (function) {
    case COM_HOST_LINE_RESUME: return resume(tty);
    case COM_HOST_LINE_SET_RTS: return setLine(tty, TIOCMBIS, TIOCM_RTS);
    case COM_HOST_LINE_CLEAR_RTS: return setLine(tty, TIOCMBIC, TIOCM_RTS);
    case COM_HOST_LINE_SET_DTR: return setLine(tty, TIOCMBIS, TIOCM_DTR);
    case COM_HOST_LINE_CLEAR_DTR: return setLine(tty, TIOCMBIC, TIOCM_DTR);
    case COM_HOST_LINE_SET_BREAK: return request(tty, TIOCSBRK, 0);
    case COM_HOST_LINE_CLEAR_BREAK: return request(tty, TIOCCBRK, 0);
    default: return -EINVAL;
    }
}

int32_t modemStatus(void* device, uint32_t* lines) noexcept {
    int32_t now = 0;
    if (const int32_t result = readLines(of(device), now); result < 0)
        return result;
    *lines = bitIf((now & TIOCM_CTS) != 0, COM_HOST_MODEM_CTS) |
             bitIf((now & TIOCM_DSR) != 0, COM_HOST_MODEM_DSR) |
             bitIf((now & TIOCM_RNG) != 0, COM_HOST_MODEM_RING) |
             bitIf((now & TIOCM_CAR) != 0, COM_HOST_MODEM_CARRIER);
    return 1;
}

int32_t status(void* device, uint32_t wanted, ComHostStatus* status) noexcept {
    TtyDevice& tty = of(device);
    int32_t result = 1;
    if ((wanted & COM_HOST_WANT_ERRORS) != 0 && tty.countsErrors)
        status->errors = newErrors(tty);
    if ((wanted & COM_HOST_WANT_IN) != 0)
        result = std::min(result, askQueue(tty, FIONREAD, status->inQueue));
    if ((wanted & COM_HOST_WANT_OUT) != 0 && !tty.isPty)
        result = std::min(result, askQueue(tty, TIOCOUTQ, status->outQueue));
    if (tty.dtrHoldsInput)
        holdPeerOff(tty);
    return result;
}

// What was written to a pty is with the far end already; the kernel's discard would take it away there.
int32_t discardOutput(TtyDevice& tty) noexcept {
    if (tty.isPty)
        return 0;
    const int32_t before = queuedOutput(tty);
    if (const int32_t flushed = request(tty, TCFLSH, TCOFLUSH); flushed < 0)
        return flushed;
    const int32_t left = queuedOutput(tty);
    forgetDiscarded(tty, left);
    return before < 0 ? before : left < 0 ? left : std::max(before - left, 0);
}

int32_t purge(void* device, uint32_t what) noexcept {
    TtyDevice& tty = of(device);
    int32_t result = 1;
    if ((what & COM_HOST_PURGE_RX) != 0)
        result = request(tty, TCFLSH, TCIFLUSH);
    MutexLock guard(tty.lock);
    if ((what & COM_HOST_PURGE_TX) != 0) {
        const int32_t discarded = discardOutput(tty);
        result = discarded < 0 ? discarded : result;
        tty.abandoned += static_cast<uint32_t>(std::max(discarded, 0));
    }
    if ((what & COM_HOST_PURGE_TX_ABORT) != 0)
        interruptWrites(tty);
    return result;
}

bool holdPeerOff(TtyDevice& tty) noexcept {
    uint32_t queued = 0;
    if (!tty.hasModemLines || askQueue(tty, FIONREAD, queued) < 0)
        return false;
    MutexLock guard(tty.lock);
    if ((tty.line.flags & COM_HOST_LINE_DTR_HANDSHAKE) == 0)
        return false;
    // The XOFF limit is room that must be left, the XON limit a fill that is low enough to go on.
    const uint32_t room = std::min<uint32_t>(tty.line.xoffLimit, kernelQueueSize / 2);
    const uint32_t low = std::min<uint32_t>(tty.line.xonLimit, kernelQueueSize / 2);
    const bool lower = tty.dtrLowered ? queued > low : queued > kernelQueueSize - room;
    if (lower != tty.dtrLowered && setLine(tty, lower ? TIOCMBIC : TIOCMBIS, TIOCM_DTR) > 0)
        tty.dtrLowered = lower;
    return tty.dtrLowered;
}

bool heldByDsr(TtyDevice& tty) noexcept {
    int32_t lines = 0;
    return tty.dsrHoldsOutput && readLines(tty, lines) > 0 && (lines & TIOCM_DSR) == 0;
}

} // namespace brisolt::tty

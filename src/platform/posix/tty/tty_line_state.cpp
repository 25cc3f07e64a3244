// The line state of a tty: how it maps to the kernel's settings and back. What the kernel has after a
// change counts, not what was asked for; what the kernel does not know is remembered beside it.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include <sys/ioctl.h>

#include "platform/error_text.h"
#include "platform/mutex.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

constexpr tcflag_t inputRateMask = static_cast<tcflag_t>(CBAUD) << IBSHIFT;
constexpr tcflag_t framingMask = CSIZE | PARENB | PARODD | CMSPAR | CSTOPB;
constexpr tcflag_t markFlags = INPCK | PARMRK;
constexpr tcflag_t parityMask = PARENB | PARODD | CMSPAR;

constexpr uint32_t rtsCtsFlags = COM_HOST_LINE_CTS_OUTPUT | COM_HOST_LINE_RTS_HANDSHAKE;
constexpr uint32_t dtrFlags = COM_HOST_LINE_DTR_ON | COM_HOST_LINE_DTR_HANDSHAKE;
constexpr uint32_t rtsFlags = COM_HOST_LINE_RTS_ON | COM_HOST_LINE_RTS_HANDSHAKE;

/// Bytes pass as they are. A break is left to the kernel's counter: it is neither a byte nor a signal.
void makeRaw(termios2& settings) {
    settings.c_iflag = IGNBRK;
    settings.c_oflag = 0;
    settings.c_lflag = 0;
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_line = N_TTY;
    // With a minimum of one byte an empty line answers "try again", and a read of 0 is a hang-up alone.
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
}

tcflag_t parityBits(uint8_t parity) {
    switch (parity) {
    case COM_HOST_PARITY_ODD: return PARENB | PARODD;
    case COM_HOST_PARITY_EVEN: return PARENB;
    case COM_HOST_PARITY_MARK: return PARENB | PARODD | CMSPAR;
    case COM_HOST_PARITY_SPACE: return PARENB | CMSPAR;
    default: return 0;
    }
}

uint8_t parityOf(tcflag_t control) {
    for (uint8_t parity = COM_HOST_PARITY_ODD; parity <= COM_HOST_PARITY_SPACE; ++parity)
        if ((control & parityMask) == parityBits(parity))
            return parity;
    return COM_HOST_PARITY_NONE;
}

tcflag_t sizeBits(uint8_t dataBits) {
    constexpr tcflag_t sizes[] = {CS5, CS6, CS7, CS8};
    return sizes[dataBits - 5];
}

uint8_t sizeOf(tcflag_t control) {
    switch (control & CSIZE) {
    case CS5: return 5;
    case CS6: return 6;
    case CS7: return 7;
    default: return 8;
    }
}

/// One bit stands for more than one stop bit: the hardware makes it one and a half with 5 data bits and
/// two otherwise. Two also serve where one and a half are asked for, since a receiver needs that many at
/// least and takes more for idle line.
tcflag_t stopBits(uint8_t stop) {
    return stop == COM_HOST_STOP_1 ? 0 : CSTOPB;
}

uint8_t stopOf(tcflag_t control, uint8_t remembered) {
    if ((control & CSTOPB) == 0)
        return COM_HOST_STOP_1;
    if (remembered != COM_HOST_STOP_1)
        return remembered;
    return sizeOf(control) == 5 ? COM_HOST_STOP_1_5 : COM_HOST_STOP_2;
}

/// The kernel counts line errors whether it checks or not. It checks here for the marks alone, from which the
/// reader gets broken bytes as they came, or replaced. A real line has them always: what USB devices report
/// the kernel passes on unseen when there is nothing to check, and a break would then be a zero byte.
bool wantsMarks(const TtyDevice& tty, const ComHostLineState& state) {
    return !tty.isPty || replacesErrors(state);
}

void applyInput(termios2& settings, const TtyDevice& tty, const ComHostLineState& state) {
    makeRaw(settings);
    if (tty.options.marks) // a break is marked, too
        settings.c_iflag = markFlags;
    if (wantsMarks(tty, state))
        settings.c_iflag |= markFlags;
    if ((state.flags & COM_HOST_LINE_XON_OUTPUT) != 0)
        settings.c_iflag |= IXON;
    if ((state.flags & COM_HOST_LINE_XON_INPUT) != 0)
        settings.c_iflag |= IXOFF;
    settings.c_cc[VSTART] = state.xonChar;
    settings.c_cc[VSTOP] = state.xoffChar;
}

/// The usual rates have codes of their own, by which programs that know no others tell them.
tcflag_t rateCode(uint32_t rate) {
    constexpr std::pair<uint32_t, tcflag_t> codes[] = {
        {50, B50},           {75, B75},           {110, B110},         {134, B134},
        {150, B150},         {200, B200},         {300, B300},         {600, B600},
        {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
        {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
        {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
        {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
        {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
        {3500000, B3500000}, {4000000, B4000000}};
    const auto* found = std::find_if(std::begin(codes), std::end(codes),
                                     [rate](const auto& entry) { return entry.first == rate; });
    return found == std::end(codes) ? tcflag_t{BOTHER} : found->second;
}

/// Without a code for the input its rate is that of the output, whoever sets that later.
void applyControl(termios2& settings, const ComHostLineState& state) {
    settings.c_cflag &= ~(static_cast<tcflag_t>(CBAUD) | inputRateMask | framingMask | CRTSCTS);
    settings.c_cflag |= rateCode(state.baudRate) | sizeBits(state.dataBits) | parityBits(state.parity) |
                        stopBits(state.stopBits);
    if ((state.flags & rtsCtsFlags) != 0)
        settings.c_cflag |= CRTSCTS;
    settings.c_ospeed = state.baudRate;
    settings.c_ispeed = state.baudRate;
}

/// What the kernel has now, beside what only we remember.
ComHostLineState combined(const TtyDevice& tty, const termios2& settings) WITH_LOCK(tty.lock) {
    ComHostLineState state = tty.line;
    state.baudRate = settings.c_ospeed;
    if (!tty.framingKept) {
        state.dataBits = sizeOf(settings.c_cflag);
        state.parity = parityOf(settings.c_cflag);
        state.stopBits = stopOf(settings.c_cflag, tty.line.stopBits);
    }
    if ((settings.c_cflag & CRTSCTS) == 0)
        state.flags &= ~rtsCtsFlags;
    else if ((state.flags & rtsCtsFlags) == 0)
        state.flags |= rtsCtsFlags;
    if (tty.isMaster)
        return state;
    state.flags &= ~uint32_t{COM_HOST_LINE_XON_OUTPUT | COM_HOST_LINE_XON_INPUT};
    state.flags |= (settings.c_iflag & IXON) != 0 ? uint32_t{COM_HOST_LINE_XON_OUTPUT} : 0;
    state.flags |= (settings.c_iflag & IXOFF) != 0 ? uint32_t{COM_HOST_LINE_XON_INPUT} : 0;
    state.xonChar = settings.c_cc[VSTART];
    state.xoffChar = settings.c_cc[VSTOP];
    return state;
}

/// Raises or lowers DTR or RTS where its mode changes; a line that the program has set since stays as it
/// is through a change of anything else. Lines that are missing are no reason to refuse.
void driveLine(TtyDevice& tty, uint32_t oldFlags, uint32_t newFlags, uint32_t lineFlags, int32_t lineBit) {
    if ((oldFlags & lineFlags) != (newFlags & lineFlags))
        ioctl(tty.descriptor, (newFlags & lineFlags) != 0 ? TIOCMBIS : TIOCMBIC, &lineBit);
}

int32_t refuse(const TtyDevice& tty, const std::string& what) {
    setErrorText("cannot set the line of " + tty.path + ": " + what);
    return -EINVAL;
}

int32_t checkValues(const TtyDevice& tty, const ComHostLineState& state) {
    if (state.baudRate == 0)
        return refuse(tty, "a baud rate of 0");
    if (state.dataBits < 5 || state.dataBits > 8)
        return refuse(tty, std::to_string(state.dataBits) + " data bits; 5 to 8 are possible");
    if (state.parity > COM_HOST_PARITY_SPACE)
        return refuse(tty, "unknown parity " + std::to_string(state.parity));
    if (state.stopBits > COM_HOST_STOP_2)
        return refuse(tty, "unknown stop bits " + std::to_string(state.stopBits));
    return 1;
}

int32_t refuseFailed(const TtyDevice& tty, int32_t error) noexcept {
    setErrorTextFrom({"cannot set the line of ", tty.path, ": ", std::strerror(error)});
    return -error;
}

/// Sets the kernel and reads back what it took. A pty has no line and drops the framing, which is no loss;
/// a device with a line that drops it would talk nonsense.
int32_t changeSettings(TtyDevice& tty, const ComHostLineState& state, termios2& taken) {
    termios2 before{};
    if (ioctl(tty.descriptor, TCGETS2, &before) != 0)
        return refuseFailed(tty, errno);
    termios2 wanted = before;
    if (!tty.isMaster) // there they would be the far end's settings
        applyInput(wanted, tty, state);
    applyControl(wanted, state);
    if (ioctl(tty.descriptor, TCSETS2, &wanted) != 0 || ioctl(tty.descriptor, TCGETS2, &taken) != 0)
        return refuseFailed(tty, errno);
    if (tty.isPty || (taken.c_cflag & framingMask) == (wanted.c_cflag & framingMask))
        return 1;
    ioctl(tty.descriptor, TCSETS2, &before);
    return refuse(tty, "the device does not have this framing");
}

} // namespace

bool replacesErrors(const ComHostLineState& state) noexcept {
    return (state.flags & COM_HOST_LINE_ERROR_REPLACE) != 0 && state.parity != COM_HOST_PARITY_NONE;
}

void learnLineState(TtyDevice& tty, bool raw) noexcept {
    MutexLock guard(tty.lock);
    ComHostLineState& state = tty.line;
    state.size = sizeof state;
    state.flags = COM_HOST_LINE_BINARY | COM_HOST_LINE_DTR_ON | COM_HOST_LINE_RTS_ON;
    state.xonChar = 0x11;
    state.xoffChar = 0x13;
    state.eofChar = 0x1A;
    int32_t lines = 0;
    if (ioctl(tty.descriptor, TIOCMGET, &lines) == 0) {
        state.flags &= (lines & TIOCM_DTR) == 0 ? ~uint32_t{COM_HOST_LINE_DTR_ON} : ~0U;
        state.flags &= (lines & TIOCM_RTS) == 0 ? ~uint32_t{COM_HOST_LINE_RTS_ON} : ~0U;
    } else if (lacksFunction(errno)) {
        tty.hasModemLines = false;
    }
    if (ioctl(tty.descriptor, TCGETS2, &tty.before) != 0)
        return;
    tty.bitRate = std::max<uint32_t>(tty.before.c_ospeed, 1);
    if (!raw)
        return;
    termios2 settings = tty.before;
    makeRaw(settings);
    if (tty.options.leaveLinesAtClose)
        settings.c_cflag &= ~static_cast<tcflag_t>(HUPCL); // now: the program may end without a close
    ioctl(tty.descriptor, TCSETS2, &settings);
}

// At the close: nobody else has the device any more.
void restoreMarks(const TtyDevice& tty) noexcept LOCKS_UNCHECKED {
    termios2 settings{};
    if (!tty.marked || ioctl(tty.descriptor, TCGETS2, &settings) != 0)
        return;
    settings.c_iflag &= ~markFlags;
    settings.c_iflag |= tty.before.c_iflag & markFlags;
    ioctl(tty.descriptor, TCSETS2, &settings);
}

int32_t getLineState(void* device, ComHostLineState* state) noexcept {
    TtyDevice& tty = of(device);
    MutexLock guard(tty.lock);
    termios2 settings{};
    if (ioctl(tty.descriptor, TCGETS2, &settings) != 0)
        return -errno;
    *state = combined(tty, settings);
    return 1;
}

namespace {

int32_t changeLine(TtyDevice& tty, const ComHostLineState* state) {
    MutexLock guard(tty.lock);
    if (const int32_t checked = checkValues(tty, *state); checked < 0)
        return checked;
    termios2 taken{};
    if (const int32_t changed = changeSettings(tty, *state, taken); changed < 0)
        return changed;

    driveLine(tty, tty.line.flags, state->flags, dtrFlags, TIOCM_DTR);
    driveLine(tty, tty.line.flags, state->flags, rtsFlags, TIOCM_RTS);
    const bool marked = !tty.isMaster && !tty.options.marks && (taken.c_iflag & PARMRK) != 0;
    if (tty.marked != marked)
        tty.marks = {};
    tty.marked = marked;
    tty.line = *state;
    tty.line.size = sizeof tty.line;
    tty.framingKept = tty.isPty;
    tty.line = combined(tty, taken);
    tty.dtrLowered = false;
    tty.bitRate = std::max<uint32_t>(taken.c_ospeed, 1);
    tty.dsrHoldsOutput = (state->flags & COM_HOST_LINE_DSR_OUTPUT) != 0;
    tty.dtrHoldsInput = (state->flags & COM_HOST_LINE_DTR_HANDSHAKE) != 0;
    tty.filtersInput = marked || (state->flags & COM_HOST_LINE_NULL_STRIP) != 0;
    return 1;
}

} // namespace

int32_t setLineState(void* device, const ComHostLineState* state) noexcept try {
    TtyDevice& tty = of(device);
    const int32_t result = changeLine(tty, state);
    watchAgain(tty);
    return result;
} catch (...) {
    return refuseFailed(of(device), ENOMEM);
}

} // namespace brisolt::tty

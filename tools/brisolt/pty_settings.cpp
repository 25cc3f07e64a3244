// Rates that are none of the old constants need the kernel's own record, whose header does not go with the C
// library's.
#include "pty_settings.h"

#include <asm/ioctls.h>
#include <asm/termbits.h>

extern "C" int ioctl(int, unsigned long, ...) noexcept;

namespace {

constexpr int on = 1;

/// A master is told of changes only while this flag of the slave is set, and programs clear it with the others.
bool keepTelling(int master, termios2& raw) {
    if ((raw.c_lflag & EXTPROC) != 0)
        return true;
    raw.c_lflag |= EXTPROC;
    return ioctl(master, TCSETS2, &raw) == 0;
}

} // namespace

bool preparePty(int master, const PtySettings& settings) {
    termios2 raw{};
    if (ioctl(master, TIOCPKT, &on) != 0 || ioctl(master, TCGETS2, &raw) != 0)
        return false;
    raw.c_iflag = settings.softwareFlow ? IXON | IXOFF : 0;
    raw.c_oflag = 0;
    raw.c_lflag = EXTPROC;
    raw.c_cflag = CS8 | CREAD | CLOCAL | BOTHER | (BOTHER << IBSHIFT);
    raw.c_cflag |= settings.twoStopBits ? CSTOPB : 0;
    raw.c_cflag |= settings.hardwareFlow ? CRTSCTS : 0;
    raw.c_ispeed = raw.c_ospeed = settings.rate;
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    return ioctl(master, TCSETS2, &raw) == 0;
}

bool readPty(int master, PtySettings& settings) {
    termios2 raw{};
    if (ioctl(master, TCGETS2, &raw) != 0)
        return false;
    settings.rate = (raw.c_cflag & CBAUD) == B0 ? 0 : raw.c_ospeed;
    settings.twoStopBits = (raw.c_cflag & CSTOPB) != 0;
    settings.hardwareFlow = (raw.c_cflag & CRTSCTS) != 0;
    settings.softwareFlow = (raw.c_iflag & IXON) != 0;
    return keepTelling(master, raw);
}

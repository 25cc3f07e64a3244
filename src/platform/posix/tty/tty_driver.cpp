// Serial devices of the host: opened for this program alone, or adopted from whoever opened them.
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "platform/error_text.h"
#include "platform/mutex.h"
#include "platform/posix/forked.h"
#include "platform/posix/tty/tty_device.h"
#include "platform/serial.h"
#include "platform/thread.h"

namespace brisolt::tty {
namespace {

constexpr uint32_t defaultWriteLimit = 2000; // milliseconds

bool isPseudoTerminal(int32_t descriptor) {
    constexpr uint32_t firstMajor = 136;
    constexpr uint32_t lastMajor = 143;
    struct stat about {};
    if (fstat(descriptor, &about) != 0)
        return false;
    return major(about.st_rdev) >= firstMajor && major(about.st_rdev) <= lastMajor;
}

// Nobody else has the device as yet.
void learnKind(TtyDevice& tty) LOCKS_UNCHECKED {
    int32_t number = 0;
    tty.isMaster = ioctl(tty.descriptor, TIOCGPTN, &number) == 0;
    tty.isPty = tty.isMaster || isPseudoTerminal(tty.descriptor);
    tty.timeouts.size = sizeof tty.timeouts;
    tty.timeouts.writeConstant = defaultWriteLimit;
    if (ioctl(tty.descriptor, TIOCGICOUNT, &tty.counters) != 0 && lacksFunction(errno))
        tty.countsErrors = false;
    tty.opened = tty.latest = tty.counters;
    uint32_t registers = 0;
    tty.tellsTransmitter = ioctl(tty.descriptor, TIOCSERGETLSR, &registers) == 0;
}

/// Takes the tty for us alone; 0 or an error number. The lock stops other programs that ask for it, this
/// program's other openings and root; TIOCEXCL stops everybody else.
int32_t claim(TtyDevice& tty) {
    if (isatty(tty.descriptor) == 0)
        return ENOTTY;
    if (!tty.options.exclusive)
        return 0;
    if (flock(tty.descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        return EBUSY;
    ioctl(tty.descriptor, TIOCEXCL);
    return 0;
}

int32_t refuse(std::string text, int32_t error) {
    setErrorText(std::move(text));
    return -error;
}

void closeTty(void* device) noexcept;

/// A line that is to be low is so from the first moment on at which it can be reached: the kernel has raised both
/// if nobody else had the device open.
void lowerLines(const TtyDevice& tty) {
    const int32_t lines = (tty.options.dtr == LineStart::lower ? TIOCM_DTR : 0) |
                          (tty.options.rts == LineStart::lower ? TIOCM_RTS : 0);
    if (lines != 0)
        ioctl(tty.descriptor, TIOCMBIC, &lines);
}

/// O_NONBLOCK keeps the open itself from waiting for carrier, and every read and write after it.
int32_t openDescriptor(TtyDevice& tty) {
    if (tty.options.exclusive)
        if (const int32_t process = tty.uucpLock.take(tty.path); process != 0)
            return refuse(lockedText(tty.path, process), EBUSY);
    do { // another open or close of the device may make it wait
        tty.descriptor = ::open(tty.path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    } while (tty.descriptor < 0 && errno == EINTR);
    if (tty.descriptor < 0) {
        const int32_t error = errno;
        return refuse(openErrorText(tty.path, error), error);
    }
    if (const int32_t error = claim(tty); error != 0)
        return refuse(openErrorText(tty.path, error), error);
    lowerLines(tty); // ours by now: nobody else's fall
    return 1;
}

int32_t openTty(const char* path, const DeviceOptions& options, void** device, int32_t* handle) noexcept try {
    auto tty = std::make_unique<TtyDevice>();
    tty->path = path;
    tty->options = options;
    if (tty->interruption.descriptor() < 0) // nobody could end a write that the line holds off
        return refuse(openErrorText(tty->path, EMFILE), EMFILE);
    if (const int32_t result = openDescriptor(*tty); result < 0)
        return result;
    learnKind(*tty);
    learnLineState(*tty, true);
    if (const int32_t error = applyOptions(*tty); error != 0) {
        closeTty(tty.release());
        return -error;
    }
    forked::closeInChild(tty->descriptor);
    *handle = tty->descriptor;
    *device = tty.release();
    return 1;
} catch (...) {
    return -ENOMEM;
}

/// A descriptor of our own for the caller's tty, which he may close whenever he likes. Opened anew where that
/// can be done and changes nothing: what a mere copy does about waiting is shared with the caller, his children
/// and everybody else who has a copy, and any of them may change it under us. An open raises DTR.
int32_t ownDescriptor(int32_t handle, bool& isCopy) {
    int32_t number = 0;
    int32_t lines = 0;
    const bool master = ioctl(handle, TIOCGPTN, &number) == 0;
    const bool dtrLow = ioctl(handle, TIOCMGET, &lines) == 0 && (lines & TIOCM_DTR) == 0;
    int32_t own = -1;
    if (isatty(handle) == 1 && !master && !dtrLow) {
        const std::string path = "/proc/self/fd/" + std::to_string(handle);
        own = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    }
    isCopy = own < 0;
    return isCopy ? fcntl(handle, F_DUPFD_CLOEXEC, 0) : own;
}

int32_t adoptTty(void*, int32_t handle, void** device) noexcept try {
    auto tty = std::make_unique<TtyDevice>();
    tty->path = "handle " + std::to_string(handle);
    tty->adopted = true;
    if (tty->interruption.descriptor() < 0)
        return refuse("cannot take over " + tty->path + ": " + std::strerror(EMFILE), EMFILE);
    tty->descriptor = handle < 0 ? -1 : ownDescriptor(handle, tty->isCopy);
    if (tty->descriptor < 0) {
        const int32_t error = handle < 0 ? EBADF : errno;
        return refuse("cannot take over " + tty->path + ": " + std::strerror(error), error);
    }
    if (isatty(tty->descriptor) == 0)
        return refuse("cannot take over " + tty->path + ": it is not a serial device", ENOTTY);
    const int32_t flags = fcntl(tty->descriptor, F_GETFL); // an own one never waits
    tty->wasBlocking = (flags & O_NONBLOCK) == 0;
    if (tty->wasBlocking)
        fcntl(tty->descriptor, F_SETFL, flags | O_NONBLOCK);
    learnKind(*tty);
    learnLineState(*tty, false);
    forked::closeInChild(tty->descriptor);
    *device = tty.release();
    return 1;
} catch (...) {
    return -ENOMEM;
}

/// The kernel's close waits, for half a minute, for output that the peer holds off and that the driver does
/// not give up. A thread of its own waits for that; nobody who closes a port does.
void closeDescriptor(int32_t descriptor, bool mayTakeLong) noexcept {
    const auto close = [](void* argument) {
        ::close(static_cast<int32_t>(reinterpret_cast<intptr_t>(argument)));
    };
    void* const argument = reinterpret_cast<void*>(static_cast<intptr_t>(descriptor));
    if (!mayTakeLong || !thread::start(close, argument, "brisolt-close"))
        close(argument);
}

/// What the device had before; but for the lines, where the path asks that they stay: the host would lower them.
void restoreSettings(TtyDevice& tty) noexcept {
    termios2 settings = tty.before;
    if (!tty.options.restore && ioctl(tty.descriptor, TCGETS2, &settings) != 0)
        return;
    if (tty.options.leaveLinesAtClose)
        settings.c_cflag &= ~static_cast<tcflag_t>(HUPCL);
    ioctl(tty.descriptor, TCSETS2, &settings);
}

// Nobody else has the device any more.
void closeTty(void* device) noexcept LOCKS_UNCHECKED {
    const std::unique_ptr<TtyDevice> tty(&of(device));
    tty->lineWatch.reset();
    forked::forget(tty->descriptor);
    undoOptions(*tty);
    if (tty->adopted) {
        restoreMarks(*tty);
        if (tty->wasBlocking)
            fcntl(tty->descriptor, F_SETFL, fcntl(tty->descriptor, F_GETFL) & ~O_NONBLOCK);
    } else {
        // What is left in the output queue would make the kernel's close wait for the peer.
        purge(device, COM_HOST_PURGE_TX);
        restoreSettings(*tty);
        if (tty->options.exclusive) {
            ioctl(tty->descriptor, TIOCNXCL); // a pty would stay closed to others for good
            flock(tty->descriptor, LOCK_UN);  // a child between fork and exec still has it
        }
    }
    if (tty->isPty)
        tty->uucpLock.release(); // once it is closed its number may be another pty's
    const bool mayTakeLong = queuedOutput(*tty) > 0;
    closeDescriptor(std::exchange(tty->descriptor, -1), mayTakeLong);
}

// The kernel sizes its queues and reports its events as it does; there is nothing to set.
int32_t acceptQueues(void*, uint32_t, uint32_t) noexcept {
    return 1;
}

int32_t acceptEventMask(void*, uint32_t) noexcept {
    return 1;
}

void cancel(void* device, int32_t on) noexcept {
    TtyDevice& tty = of(device);
    MutexLock guard(tty.lock);
    tty.cancelled = on != 0;
    if (on != 0)
        interruptWrites(tty);
}

} // namespace

TtyDevice::~TtyDevice() {
    if (descriptor >= 0)
        ::close(descriptor);
}

bool lacksFunction(int32_t error) noexcept {
    return error == ENOTTY || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

bool isGone(int32_t error) noexcept {
    return error == EIO || error == ENXIO || error == ENODEV;
}

} // namespace brisolt::tty

namespace brisolt::serial {

// The caller may have closed it long ago, and its number be somebody else's. A host that cannot tell leaves it ours:
// nobody else would close it.
void closeAdoptedDescriptor(void* ttyDevice, int32_t handle) noexcept {
    struct stat ours {};
    struct stat theirs {};
    const bool told = fstat(tty::of(ttyDevice).descriptor, &ours) == 0 && fstat(handle, &theirs) == 0;
    if (!told ||
        (ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino && ours.st_rdev == theirs.st_rdev))
        ::close(handle);
}

void closeForeign(int32_t handle) noexcept {
    if (handle > STDERR_FILENO)
        ::close(handle);
}

const ComHostDriver& ttyDriver() noexcept {
    static constexpr ComHostDriver driver{
        .size = sizeof(ComHostDriver),
        .context = nullptr,
        .open = [](void*, const char* path, void** device,
                   int32_t* handle) { return tty::openTty(path, {}, device, handle); },
        .adopt = tty::adoptTty,
        .close = tty::closeTty,
        .properties = tty::properties,
        .getLineState = tty::getLineState,
        .setLineState = tty::setLineState,
        .getTimeouts = tty::getTimeouts,
        .setTimeouts = tty::setTimeouts,
        .setQueues = tty::acceptQueues,
        .setEventMask = tty::acceptEventMask,
        .purge = tty::purge,
        .line = tty::line,
        .modemStatus = tty::modemStatus,
        .status = tty::status,
        .read = tty::read,
        .write = tty::write,
        .flush = tty::flush,
        .wait = tty::wait,
        .cancel = tty::cancel,
        .descriptor = tty::descriptor,
        .counters = tty::counters,
        .watch = tty::watch,
        .unsent = tty::unsent,
        .state = tty::state,
    };
    return driver;
}

int32_t openTty(const char* path, const DeviceOptions& options, void** device, int32_t* handle) noexcept {
    return tty::openTty(path, options, device, handle);
}

} // namespace brisolt::serial

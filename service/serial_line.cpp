#include "serial_line.h"

#include <cerrno>
#include <cstring>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>

#include "library.h"
#include "refusals.h"
#include "terminal_settings.h"

namespace brisolt::service {

namespace {

int32_t refuse(const ModemSettings& settings, const std::string& why, int32_t result) {
    complain("[" + settings.name + "] " + settings.device + ": " + why);
    return result;
}

int32_t openFailure(const ModemSettings& settings, int error) {
    switch (error) {
    case EBUSY: return result::lineInUse;
    case ENOENT:
    case ENXIO:
    case ENODEV:
    case EIO:
    case ENOTTY:
    case EISDIR: return refuse(settings, std::strerror(error), result::componentMissing);
    case EMFILE:
    case ENFILE:
    case ENOMEM: return refuse(settings, std::strerror(error), result::resourceUnavailable);
    default: return refuse(settings, std::strerror(error), result::operationFailed);
    }
}

/// More than a file's name: options behind it, or the identity of a device in its place.
bool needsLibrary(const std::string& path) {
    return path.rfind("usb:", 0) == 0 ||
           (path.find('?') != std::string::npos && access(path.c_str(), F_OK) != 0);
}

/// What a modem line cannot do without: it is held for the service alone, DTR is how a modem hears of the end of a
/// call, and its bytes are the modem's words. The first option that asks for anything else; empty: none.
std::string optionAgainst(const std::string& path) {
    static constexpr std::pair<std::string_view, std::string_view> needed[] = {
        {"dtr", "on"},   {"rts", "on"},  {"close", "lower"},
        {"marks", "no"}, {"keep", "no"}, {"exclusive", "yes"}};
    std::istringstream options(path);
    options.ignore(static_cast<std::streamsize>(path.size()), '?');
    for (std::string option; std::getline(options, option, '&');) {
        const std::string key = option.substr(0, option.find('='));
        for (const auto& [name, wanted] : needed)
            if (key == name && option != key + '=' + std::string(wanted))
                return option;
        if (option == "rs485=rts")
            return option;
    }
    return {};
}

} // namespace

int32_t SerialLine::open(const ModemSettings& settings) {
    const int32_t opened = needsLibrary(settings.device) ? openThroughLibrary(settings) : openFile(settings);
    if (opened != result::success)
        return opened;
    const int32_t result = claim(settings);
    if (result != result::success)
        close();
    return result;
}

int32_t SerialLine::openFile(const ModemSettings& settings) {
    // Without waiting for a carrier, now and at every read.
    descriptor_ = Descriptor(throughSignals(
        [&] { return ::open(settings.device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
    return descriptor_ ? result::success : openFailure(settings, errno);
}

/// The handle of a tty is its descriptor. What the library tells of a failure it tells in words alone.
int32_t SerialLine::openThroughLibrary(const ModemSettings& settings) {
    if (const std::string option = optionAgainst(settings.device); !option.empty())
        return refuse(settings, "a modem of the telephony service cannot have " + option,
                      result::operationFailed);
    const int32_t handle = library().openDevice(settings.device.c_str());
    if (handle >= 0) {
        descriptor_ = Descriptor(handle);
        ofLibrary_ = true;
        return result::success;
    }
    char why[1024] = "";
    library().getErrorText(why, sizeof why);
    return std::strstr(why, std::strerror(EBUSY)) != nullptr
               ? result::lineInUse
               : refuse(settings, why, result::componentMissing);
}

/// The lock keeps out who asks for it, this process and the superuser included; TIOCEXCL everybody else.
int32_t SerialLine::claim(const ModemSettings& settings) {
    if (isatty(descriptor_.get()) == 0)
        return openFailure(settings, ENOTTY);
    if (throughSignals([&] { return flock(descriptor_.get(), LOCK_EX | LOCK_NB); }) != 0)
        return openFailure(settings, errno == EWOULDBLOCK ? EBUSY : errno);
    termios2 found{};
    if (ioctl(descriptor_.get(), TCGETS2, &found) != 0)
        return openFailure(settings, errno);
    before_ = found;
    ioctl(descriptor_.get(), TIOCEXCL);
    if (!configure(settings))
        return openFailure(settings, errno);
    int lines = TIOCM_DTR | TIOCM_RTS;
    ioctl(descriptor_.get(), TIOCMBIS, &lines);
    ioctl(descriptor_.get(), TCFLSH, TCIOFLUSH);
    return result::success;
}

bool SerialLine::configure(const ModemSettings& settings) {
    termios2 wanted = *before_;
    makeRaw(wanted, settings.speed);
    wanted.c_cflag |= HUPCL;
    if (settings.flow == Flow::software)
        wanted.c_iflag |= IXON | IXOFF;
    if (settings.flow == Flow::hardware)
        wanted.c_cflag |= CRTSCTS;
    return ioctl(descriptor_.get(), TCSETS2, &wanted) == 0;
}

void SerialLine::close() noexcept {
    if (before_) {
        // What is left to be sent would make the kernel wait for the modem; a pty would stay exclusive.
        ioctl(descriptor_.get(), TCFLSH, TCIOFLUSH);
        ioctl(descriptor_.get(), TCSETS2, &*before_);
        ioctl(descriptor_.get(), TIOCNXCL);
        flock(descriptor_.get(), LOCK_UN);
    }
    before_.reset();
    if (std::exchange(ofLibrary_, false))
        library().closeDevice(descriptor_.release());
    descriptor_.close();
}

ssize_t SerialLine::read(char* bytes, std::size_t count) const noexcept {
    const ssize_t result = ::read(descriptor_.get(), bytes, count);
    return result == 0 ? -1 : countOf(result);
}

ssize_t SerialLine::write(std::string_view bytes) const noexcept {
    return countOf(::write(descriptor_.get(), bytes.data(), bytes.size()));
}

void SerialLine::discardInput() const noexcept {
    ioctl(descriptor_.get(), TCFLSH, TCIFLUSH);
}

bool SerialLine::carrier() const noexcept {
    int lines = 0;
    return ioctl(descriptor_.get(), TIOCMGET, &lines) == 0 && (lines & TIOCM_CAR) != 0;
}

bool SerialLine::setDtr(bool on) const noexcept {
    int line = TIOCM_DTR;
    return ioctl(descriptor_.get(), on ? TIOCMBIS : TIOCMBIC, &line) == 0;
}

} // namespace brisolt::service

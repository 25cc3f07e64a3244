// A modem's line over a pseudo terminal.
//
// Whether the program has the terminal open is what the kernel says of the master (hung up or not). It says
// so all the time, so a hung-up master must not be polled; the next open is told by inotify instead. Nothing
// tells when the program sets the speed 0, by which a terminal without a DTR line hangs up.
#include <algorithm>
#include <array>
#include <utility>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <termios.h>

#include "descriptor.h"
#include "host_failure.h"
#include "line.h"
#include "terminal_link.h"

namespace simulated {

namespace {

// How often to look for what nothing tells: a speed, and an open where the host has no inotify left to give.
constexpr int lookInterval = 20;

class PtyLine final : public Line {
public:
    explicit PtyLine(const std::string& link);

    const std::string& path() const override { return path_; }
    std::string read(std::size_t most) override;
    std::size_t write(std::string_view bytes) override;
    bool dtr() override;
    void setCarrier(bool) override {}
    void setRing(bool) override {}
    int watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) override;

private:
    bool isOpen() const;
    bool hungUpBySpeed() const;

    TerminalLink link_;
    Descriptor master_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)};
    Descriptor opens_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
    std::string path_;
    termios fresh_{};    ///< raw: nothing is echoed or translated before the program sets it up its own way
    bool there_ = false; ///< a program, at the last look
    bool heard_ = false; ///< bytes since then
};

PtyLine::PtyLine(const std::string& link) : link_(link) {
    std::array<char, 128> name{};
    if (!master_ || grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0 ||
        ptsname_r(master_.get(), name.data(), name.size()) != 0 || tcgetattr(master_.get(), &fresh_) != 0)
        failHost("pseudo terminal");
    path_ = name.data();
    cfmakeraw(&fresh_);
    // A master tells that nobody has the slave only when somebody has had it.
    if (!Descriptor(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) ||
        tcsetattr(master_.get(), TCSANOW, &fresh_) != 0)
        failHost(path_);
    if (opens_ && inotify_add_watch(opens_.get(), path_.c_str(), IN_OPEN) < 0)
        opens_.close();
    link_.pointAt(path_);
}

bool PtyLine::isOpen() const {
    pollfd entry{master_.get(), 0, 0};
    return poll(&entry, 1, 0) < 0 ? there_ : (entry.revents & POLLHUP) == 0;
}

bool PtyLine::hungUpBySpeed() const {
    termios settings{};
    return tcgetattr(master_.get(), &settings) == 0 && cfgetospeed(&settings) == B0;
}

std::string PtyLine::read(std::size_t most) {
    std::string bytes(most, '\0');
    const ssize_t count = ::read(master_.get(), bytes.data(), bytes.size());
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    heard_ = heard_ || !bytes.empty();
    return bytes;
}

std::size_t PtyLine::write(std::string_view bytes) {
    if (!isOpen())
        return bytes.size();
    const ssize_t count = ::write(master_.get(), bytes.data(), bytes.size());
    return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
}

/// The one place where coming and going are taken note of; everybody else only looks.
bool PtyLine::dtr() {
    // Who was heard was there, also if he came and went between two looks.
    const bool heard = std::exchange(heard_, false);
    const bool there = isOpen() || heard;
    if (there_ && !there) {
        // As a serial port would be found: without the settings of the last user or bytes meant for him, those
        // under way as well as those that have arrived.
        tcflush(master_.get(), TCOFLUSH);
        tcsetattr(master_.get(), TCSAFLUSH, &fresh_);
    }
    there_ = there;
    return there && !hungUpBySpeed();
}

int PtyLine::watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) {
    std::array<char, 4096> events{};
    while (opens_ && ::read(opens_.get(), events.data(), events.size()) > 0) {
    }
    // Looked at behind the events that have just been thrown away. What is new since the last look is left to
    // the next, which is to come at once.
    if (isOpen() != there_)
        return 0;
    if (there_) {
        const int wanted = (forBytes ? POLLIN : 0) | (forRoom ? POLLOUT : 0);
        entries.push_back({master_.get(), static_cast<short>(wanted), 0});
        return lookInterval;
    }
    entries.push_back({opens_.get(), POLLIN, 0});
    return opens_ ? -1 : lookInterval;
}

} // namespace

std::unique_ptr<Line> ptyLine(const std::string& link) {
    return std::make_unique<PtyLine>(link);
}

} // namespace simulated

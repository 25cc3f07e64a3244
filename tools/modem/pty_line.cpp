// A modem's line over a pseudo terminal.
//
// Whether the program has the terminal open is what the kernel says of the master (hung up or not). It says
// so all the time, so a hung-up master must not be polled; the next open is told by inotify instead.
#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <termios.h>

#include "descriptor.h"
#include "line.h"

namespace simulated {

namespace {

namespace fs = std::filesystem;

// How often to look for an open where the host has no inotify left to give.
constexpr int lookInterval = 20;

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::generic_category().message(errno));
}

/// Points the link at `target`, in one step even if somebody follows it meanwhile.
void makeLink(const fs::path& link, const std::string& target) {
    std::error_code error;
    if (fs::symlink_status(link).type() != fs::file_type::not_found && !fs::is_symlink(link))
        throw std::runtime_error(link.string() + ": is there already and no symbolic link");
    const fs::path fresh = link.string() + ".new";
    fs::remove(fresh, error);
    fs::create_symlink(target, fresh, error);
    if (!error)
        fs::rename(fresh, link, error);
    if (error)
        throw std::runtime_error(link.string() + ": " + error.message());
}

class PtyLine final : public Line {
public:
    explicit PtyLine(std::string link);
    ~PtyLine() override;

    const std::string& path() const override { return path_; }
    std::string read(std::size_t most) override;
    std::size_t write(std::string_view bytes) override;
    bool dtr() override;
    void setCarrier(bool) override {}
    void setRing(bool) override {}
    int watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) override;

private:
    Descriptor openSlave() const { return Descriptor(open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)); }
    void makeRaw() const;

    Descriptor master_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)};
    Descriptor opens_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
    std::string path_;
    std::string link_;
    bool present_ = false;
};

PtyLine::PtyLine(std::string link) : link_(std::move(link)) {
    std::array<char, 128> name{};
    if (!master_ || grantpt(master_.get()) != 0 || unlockpt(master_.get()) != 0 ||
        ptsname_r(master_.get(), name.data(), name.size()) != 0)
        fail("pseudo terminal");
    path_ = name.data();
    // A master tells that nobody has the slave only when somebody has had it.
    openSlave().close();
    makeRaw();
    if (opens_ && inotify_add_watch(opens_.get(), path_.c_str(), IN_OPEN) < 0)
        opens_.close();
    if (!link_.empty())
        makeLink(link_, path_);
}

PtyLine::~PtyLine() {
    // The link may be somebody else's by now.
    std::error_code error;
    if (!link_.empty() && fs::read_symlink(link_, error) == path_)
        fs::remove(link_, error);
}

/// Nothing is echoed or translated before the program has set the terminal up its own way.
void PtyLine::makeRaw() const {
    termios settings{};
    if (tcgetattr(master_.get(), &settings) != 0)
        return;
    cfmakeraw(&settings);
    tcsetattr(master_.get(), TCSANOW, &settings);
}

std::string PtyLine::read(std::size_t most) {
    std::string bytes(most, '\0');
    const ssize_t count = ::read(master_.get(), bytes.data(), bytes.size());
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
}

std::size_t PtyLine::write(std::string_view bytes) {
    if (!dtr())
        return bytes.size();
    const ssize_t count = ::write(master_.get(), bytes.data(), bytes.size());
    return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
}

bool PtyLine::dtr() {
    pollfd entry{master_.get(), 0, 0};
    const bool present = poll(&entry, 1, 0) >= 0 && (entry.revents & POLLHUP) == 0;
    if (present_ && !present) {
        // As a serial port would be found: without the settings of the last user or bytes meant for him.
        makeRaw();
        if (const Descriptor slave = openSlave())
            tcflush(slave.get(), TCIFLUSH);
    }
    present_ = present;
    return present;
}

int PtyLine::watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) {
    std::array<char, 4096> events{};
    while (opens_ && ::read(opens_.get(), events.data(), events.size()) > 0) {
    }
    // Looked at once more behind the events that have just been thrown away.
    if (dtr()) {
        const int wanted = (forBytes ? POLLIN : 0) | (forRoom ? POLLOUT : 0);
        entries.push_back({master_.get(), static_cast<short>(wanted), 0});
        return -1;
    }
    entries.push_back({opens_.get(), POLLIN, 0});
    return opens_ ? -1 : lookInterval;
}

} // namespace

std::unique_ptr<Line> ptyLine(const std::string& link) {
    return std::make_unique<PtyLine>(link);
}

} // namespace simulated

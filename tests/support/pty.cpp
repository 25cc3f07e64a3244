#include "support/pty.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace brisolt::test {
namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// Waits until the master may have something to do. A master without a slave reports "hung up" all the
/// time, so that case sleeps instead of spinning until the slave is opened.
void waitFor(int master, short events, Clock::time_point end) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd entry{master, events, 0};
    const int limit = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
    if (poll(&entry, 1, limit) > 0 && (entry.revents & events) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace

Pty::Pty() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
    if (master_ < 0)
        fail("posix_openpt");
    std::array<char, 128> name{};
    termios settings{};
    if (grantpt(master_) != 0 || unlockpt(master_) != 0 ||
        ptsname_r(master_, name.data(), name.size()) != 0 || tcgetattr(master_, &settings) != 0) {
        close();
        fail("pseudo terminal");
    }
    slavePath_ = name.data();
    // A master tells that it has no slave only when it has had one.
    ::close(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    cfmakeraw(&settings);
    tcsetattr(master_, TCSANOW, &settings);
}

std::size_t Pty::write(std::string_view bytes, Milliseconds limit) {
    const auto end = Clock::now() + limit;
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(master_, bytes.data() + written, bytes.size() - written);
        if (count > 0)
            written += static_cast<std::size_t>(count);
        else if (Clock::now() >= end)
            break;
        else
            waitFor(master_, POLLOUT, end);
    }
    return written;
}

std::string Pty::read(std::size_t count, Milliseconds limit) {
    const auto end = Clock::now() + limit;
    std::string bytes(count, '\0');
    std::size_t got = 0;
    while (got < count) {
        const ssize_t more = ::read(master_, bytes.data() + got, count - got);
        if (more > 0)
            got += static_cast<std::size_t>(more);
        else if (Clock::now() >= end)
            break;
        else
            waitFor(master_, POLLIN, end);
    }
    bytes.resize(got);
    return bytes;
}

std::string Pty::readToQuiet(Milliseconds quiet) {
    std::string bytes;
    for (;;) {
        const std::string more = read(1, quiet);
        if (more.empty())
            return bytes;
        bytes += more;
        bytes += read(4096, Milliseconds(0));
    }
}

bool Pty::connected() const {
    pollfd entry{master_, 0, 0};
    return poll(&entry, 1, 0) == 0;
}

void Pty::close() {
    if (master_ >= 0)
        ::close(master_);
    master_ = -1;
}

} // namespace brisolt::test

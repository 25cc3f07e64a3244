#include "support/pty.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace brisolt::test {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
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
    // What a killed process has locked under this number is nobody's, although its own number may be in use again.
    unlink(("/run/lock/LCK..pts_" + slavePath_.substr(slavePath_.rfind('/') + 1)).c_str());
    // A master tells that it has no slave only when it has had one.
    ::close(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    cfmakeraw(&settings);
    tcsetattr(master_, TCSANOW, &settings);
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

// Debug output goes where the user says, and nowhere by default: a library has no business in the system log
// of a machine whose owner did not ask, and a program that opens a port again and again would fill it. A line
// is lost rather than waited for, on every way that it may take.
#include "platform/error_text.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

namespace brisolt {

namespace {

/// Where the lines go, looked up once: a program may change its environment and its directory while it runs.
struct Destination {
    enum Kind { nowhere, systemLog, standardError, file } kind = nowhere;
    char path[PATH_MAX] = {};

    Destination() noexcept {
        // Not for a program that runs with rights its user has not: the file would be written with them.
        const char* wanted = secure_getenv("BRISOLT_DEBUG_OUTPUT");
        if (wanted == nullptr || *wanted == '\0')
            return;
        if (std::strcmp(wanted, "syslog") == 0)
            kind = systemLog;
        else if (std::strcmp(wanted, "stderr") == 0)
            kind = standardError;
        else if (keep(wanted))
            kind = file;
    }

private:
    bool keep(const char* wanted) noexcept {
        if (*wanted != '/' && getcwd(path, sizeof path - 1) == nullptr)
            return false;
        std::size_t length = std::strlen(path);
        if (length > 0)
            path[length++] = '/';
        if (std::strlen(wanted) >= sizeof path - length)
            return false;
        std::memcpy(path + length, wanted, std::strlen(wanted) + 1);
        return true;
    }
};

/// A write to a pipe that nobody reads, or beyond the limit of file sizes, fails; the signal that comes with it
/// would end the program.
class SignalsHeld {
public:
    SignalsHeld() noexcept {
        sigemptyset(&held_);
        sigaddset(&held_, SIGPIPE);
        sigaddset(&held_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &held_, &before_);
    }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    /// One came, and nobody is to hear of it.
    void drop() const noexcept {
        timespec none{};
        sigtimedwait(&held_, nullptr, &none);
    }

private:
    sigset_t held_;
    sigset_t before_;
};

struct Line {
    char head[40] = {};
    std::string_view text;
    const char* end = "\n";

    using Parts = std::array<iovec, 3>;
    Parts parts() noexcept {
        return {iovec{head, std::strlen(head)}, iovec{const_cast<char*>(text.data()), text.size()},
                iovec{const_cast<char*>(end), std::strlen(end)}};
    }
    /// One call, so that the lines of several threads and programs do not mix.
    void write(int descriptor) noexcept {
        const Parts whole = parts();
        SignalsHeld held;
        if (writev(descriptor, whole.data(), whole.size()) < 0 && (errno == EPIPE || errno == EFBIG))
            held.drop();
    }
    /// False when it is no socket.
    bool send(int descriptor) noexcept {
        Parts whole = parts();
        msghdr message{};
        message.msg_iov = whole.data();
        message.msg_iovlen = whole.size();
        return sendmsg(descriptor, &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno != ENOTSOCK;
    }
};

/// Opened for each line: a descriptor that is kept may be closed by a program that closes them all, and be a
/// device of somebody's afterwards.
void append(Line& line, const char* path, int flags) noexcept {
    const int descriptor = open(path, flags | O_WRONLY | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return;
    line.write(descriptor);
    close(descriptor);
}

/// A pipe or a terminal may be full, and to write without waiting is a property that all users of an open one
/// share: it is opened anew, for ourselves. A file on the disk is always ready, and its users share the place
/// of the next byte.
void toStandardError(Line& line) noexcept {
    struct stat status {};
    if (line.send(STDERR_FILENO) || fstat(STDERR_FILENO, &status) != 0)
        return;
    if (S_ISREG(status.st_mode))
        line.write(STDERR_FILENO);
    else
        append(line, "/proc/self/fd/2", 0);
}

/// By hand: the C library's way waits when the system's logger does not read. The logger knows the time.
void toSystemLog(Line& line) noexcept {
    const int logger = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (logger < 0)
        return;
    const sockaddr_un address{AF_UNIX, _PATH_LOG};
    std::snprintf(line.head, sizeof line.head, "<%d>brisolt[%d]: ", LOG_USER | LOG_DEBUG, getpid());
    line.end = "";
    if (connect(logger, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        line.send(logger);
    close(logger);
}

std::string_view trimmed(std::string_view text) noexcept {
    constexpr std::string_view lineBreaks = "\r\n ";
    const auto first = text.find_first_not_of(lineBreaks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(lineBreaks) - first + 1);
}

} // namespace

void debugOutput(std::string_view text) noexcept {
    static const Destination destination;
    Line line;
    line.text = trimmed(text);
    if (destination.kind == Destination::nowhere || line.text.empty())
        return;
    const int error = errno;
    std::snprintf(line.head, sizeof line.head, "brisolt[%d]: ", getpid());
    switch (destination.kind) {
    case Destination::systemLog: toSystemLog(line); break;
    case Destination::standardError: toStandardError(line); break;
    case Destination::file: append(line, destination.path, O_CREAT); break;
    case Destination::nowhere: break;
    }
    errno = error;
}

} // namespace brisolt

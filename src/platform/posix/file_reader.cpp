#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "platform/file.h"
#include "platform/posix/file_names.h"

namespace brisolt::file {

namespace {

/// Whether anybody has the file open for writing, this process included: the host grants a lease for reading
/// only when nobody has. Where it grants none at all (a file of somebody else's), nothing is known.
bool heldForWriting(int32_t descriptor) noexcept {
    ::fcntl(descriptor, F_SETSIG, SIGURG); // an open in this very moment signals; this one harms nobody
    if (::fcntl(descriptor, F_SETLEASE, F_RDLCK) != 0)
        return errno == EAGAIN;
    ::fcntl(descriptor, F_SETLEASE, F_UNLCK);
    return false;
}

bool readable(int32_t descriptor) noexcept {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISCHR(status.st_mode));
}

} // namespace

Reader::Reader(const char* path, Sharing sharing) noexcept
    : descriptor_(openByName(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {
    bool refused = descriptor_ >= 0 &&
                   (!readable(descriptor_) || (sharing == Sharing::readOnly && heldForWriting(descriptor_)));
    if (refused)
        ::close(std::exchange(descriptor_, -1));
}

Reader::~Reader() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

Reader::Reader(Reader&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

int32_t Reader::read(void* buffer, int32_t count) noexcept {
    if (count < 1)
        return 0;
    ssize_t got = 0;
    do
        got = ::read(descriptor_, buffer, static_cast<std::size_t>(count));
    while (got < 0 && errno == EINTR);
    return static_cast<int32_t>(got);
}

int64_t Reader::size() const noexcept {
    struct stat status {};
    return descriptor_ < 0 || ::fstat(descriptor_, &status) != 0 ? -1 : int64_t{status.st_size};
}

} // namespace brisolt::file

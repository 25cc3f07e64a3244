// Files by name: whether they can be used, and taking their names away.
#include <cerrno>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/posix/file_holders.h"
#include "platform/posix/open_files.h"

namespace brisolt::file {

namespace {

bool sameFile(const Status& one, const Status& other) noexcept {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

/// A file with that name that may be used so, as far as names and permissions tell.
bool permitted(const char* name, uint32_t used, Status& status) noexcept {
    if (::stat(name, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    if ((used & writing) == 0)
        return true; // opening it will tell
    return !writeProtected(status) && ::faccessat(AT_FDCWD, name, W_OK, AT_EACCESS) == 0;
}

/// Whether the file looked at is still the one of that status.
bool unchanged(const Look& look, const Status& status) noexcept {
    Status now{};
    return look.descriptor() >= 0 && ::fstat(look.descriptor(), &now) == 0 && sameFile(now, status);
}

/// act(its name) on a file that may be written and that nobody has open, nor gets open meanwhile.
template <class Act> bool onFreeFile(const HostName& name, Act act) noexcept {
    Status status{};
    if (!permitted(name.text(), writing, status))
        return false;
    bool free = OpenFiles::instance().admits(status, writing, reading | writing);
    Look look(name);
    if (free && !unchanged(look, status))
        return false;
    Look::Answer answer = free ? look.keepOthersOff(reading | writing) : Look::Answer::held;
    if (answer == Look::Answer::unknown && ::flock(look.descriptor(), LOCK_EX | LOCK_NB) != 0)
        answer = errno == EWOULDBLOCK ? Look::Answer::held : answer;
    if (answer != Look::Answer::held)
        return act(name.text());
    errno = EBUSY;
    return false;
}

} // namespace

bool exists(const char* path, Access access, Sharing sharing) noexcept {
    HostName name(path);
    Status status{};
    if (!permitted(name.text(), uses(access), status))
        return false;
    if (!OpenFiles::instance().admits(status, uses(access), denies(sharing)))
        return false;
    Look look(name);
    if (!unchanged(look, status))
        return false;
    return sharing == Sharing::all || look.keepOthersOff(denies(sharing)) != Look::Answer::held;
}

bool remove(const char* path, Spelling spelling) noexcept {
    return onFreeFile(HostName(path, spelling), [](const char* name) { return ::unlink(name) == 0; });
}

bool taken(const char* path) noexcept {
    Status status{};
    return ::lstat(HostName(path).text(), &status) == 0;
}

void discard(const char* path) noexcept {
    ::unlink(HostName(path).text());
}

bool replace(const char* path, const char* successor) noexcept {
    HostName source(successor);
    return onFreeFile(HostName(path), [&](const char* name) { return ::rename(source.text(), name) == 0; });
}

bool rename(const char* from, const char* to) noexcept {
    HostName source(from);
    HostName target(to);
    if (::renameat2(AT_FDCWD, source.text(), AT_FDCWD, target.text(), RENAME_NOREPLACE) == 0)
        return true;
    // Some file systems cannot do it in one step; two names in between harm nobody.
    bool inTwo = (errno == EINVAL || errno == ENOSYS) && ::link(source.text(), target.text()) == 0;
    if (inTwo)
        ::unlink(source.text());
    return inTwo;
}

void keepName(const char* path) noexcept try {
    std::string name = nameOnHost(path);
    std::string directory = name.substr(0, name.find_last_of('/') + 1);
    int descriptor = ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    ::fsync(descriptor);
    ::close(descriptor);
} catch (const std::exception&) {
    return; // no memory for the name
}

int64_t modificationTime(const char* path) noexcept {
    Status status{};
    return ::stat(HostName(path).text(), &status) == 0 ? int64_t{status.st_mtime} : -1;
}

int64_t sizeBehind(std::FILE* stream) noexcept {
    Status status{};
    return ::fstat(::fileno(stream), &status) == 0 && S_ISREG(status.st_mode) ? int64_t{status.st_size} : -1;
}

} // namespace brisolt::file

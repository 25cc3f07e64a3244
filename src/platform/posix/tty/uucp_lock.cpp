#include "platform/posix/tty/uucp_lock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/forked.h"

namespace brisolt::tty {

namespace {

constexpr const char* folder = "/run/lock/";
constexpr mode_t everybodyReads = 0644;

/// The host does not let us read the file now: it may well be somebody's.
constexpr pid_t unreadable = -1;

/// The process in a lock file: ten digits, or as some old programs write it, the bare number. Nothing: there is no
/// such file. 0: it holds no process, which is as good as nobody.
std::optional<pid_t> ownerOf(const std::string& file) {
    const int32_t descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0)
        return errno == ENOENT ? std::nullopt : std::optional<pid_t>(unreadable);
    std::array<char, 32> text{};
    const ssize_t length = ::read(descriptor, text.data(), text.size() - 1);
    ::close(descriptor);
    if (length < 0)
        return unreadable;
    if (length == static_cast<ssize_t>(sizeof(pid_t)) &&
        std::none_of(text.begin(), text.begin() + 4,
                     [](char c) { return c == ' ' || (c >= '0' && c <= '9'); })) {
        pid_t binary = 0;
        std::memcpy(&binary, text.data(), sizeof binary);
        return binary;
    }
    return static_cast<pid_t>(std::strtol(text.data(), nullptr, 10));
}

bool lives(pid_t process) noexcept {
    return process > 0 && (kill(process, 0) == 0 || errno == EPERM);
}

/// Old programs make the file first and write their number then.
bool isFresh(const std::string& file) noexcept {
    constexpr time_t longestPause = 5; // seconds
    struct stat about {};
    return stat(file.c_str(), &about) == 0 && std::abs(time(nullptr) - about.st_mtime) < longestPause;
}

/// Who has a lock with that owner in it; 0: nobody.
int32_t holderOf(pid_t owner, const std::string& file) noexcept {
    if (lives(owner))
        return owner;
    return owner == 0 && isFresh(file) ? UucpLock::unnamed : 0;
}

bool writeOwner(int32_t descriptor) noexcept {
    std::array<char, 16> text{};
    const int32_t length = std::snprintf(text.data(), text.size(), "%10d\n", getpid());
    return ::write(descriptor, text.data(), static_cast<std::size_t>(length)) == length;
}

/// Where the file system has no files without names.
bool makeNamed(const std::string& file) {
    const std::string draft = folder + ("LTMP." + std::to_string(getpid()) + "." + std::to_string(gettid()));
    const int32_t descriptor =
        ::open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, everybodyReads);
    if (descriptor < 0)
        return false;
    const bool whole = writeOwner(descriptor);
    ::close(descriptor);
    const bool linked = whole && link(draft.c_str(), file.c_str()) == 0;
    unlink(draft.c_str());
    return linked;
}

/// Made whole without a name and then named, so that nobody ever reads half a lock and a kill leaves none.
bool make(const std::string& file) {
    const int32_t descriptor = ::open(folder, O_WRONLY | O_TMPFILE | O_CLOEXEC, everybodyReads);
    if (descriptor < 0)
        return (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL) && makeNamed(file);
    const bool whole = writeOwner(descriptor);
    std::array<char, 32> draft{};
    std::snprintf(draft.data(), draft.size(), "/proc/self/fd/%d", descriptor);
    const bool linked =
        whole && linkat(AT_FDCWD, draft.data(), AT_FDCWD, file.c_str(), AT_SYMLINK_FOLLOW) == 0;
    ::close(descriptor);
    return linked;
}

} // namespace

std::string UucpLock::fileFor(const std::string& path) {
    std::string name = path;
    if (char* whole = realpath(path.c_str(), nullptr)) {
        name = whole;
        std::free(whole);
    }
    constexpr std::string_view devices = "/dev/";
    if (name.compare(0, devices.size(), devices) == 0)
        name.erase(0, devices.size());
    std::replace(name.begin(), name.end(), '/', '_');
    return std::string(folder) + "LCK.." + name;
}

void UucpLock::enlist(std::string file) noexcept {
    file_ = std::move(file); // what is made is remembered, whatever memory there is
    next_ = std::exchange(first_, this);
}

void UucpLock::delist() noexcept {
    UucpLock** place = &first_;
    while (*place != this)
        place = &(*place)->next_;
    *place = next_;
}

bool UucpLock::isOurs(const std::string& file) noexcept {
    const UucpLock* lock = first_;
    while (lock != nullptr && lock->file_ != file)
        lock = lock->next_;
    return lock != nullptr;
}

/// A child has none of its parent's devices.
void UucpLock::beginAnew() noexcept LOCKS_UNCHECKED {
    mutex_.beginAnew();
    first_ = nullptr;
}

int32_t UucpLock::take(const std::string& path) {
    forked::beginAnewInChild(beginAnew);
    constexpr int32_t tries = 3; // a dead process's lock is taken away, and somebody may be quicker
    const MutexLock guard(mutex_);
    std::string file = fileFor(path);
    for (int32_t i = 0; i < tries; ++i) {
        if (const std::optional<pid_t> owner = ownerOf(file)) {
            if (*owner == getpid()) {
                if (isOurs(file))
                    enlist(std::move(file));
                return 0;
            }
            if (*owner == unreadable)
                return 0;
            if (const int32_t holder = holderOf(*owner, file); holder != 0)
                return holder;
            if (unlink(file.c_str()) != 0)
                return 0;
        }
        if (make(file)) {
            enlist(std::move(file));
            return 0;
        }
        if (access(folder, W_OK) != 0)
            return 0;
    }
    return 0;
}

void UucpLock::release() noexcept try {
    const MutexLock guard(mutex_);
    if (file_.empty())
        return;
    delist();
    const std::optional<pid_t> owner = isOurs(file_) ? std::nullopt : ownerOf(file_);
    if (owner == getpid() || owner == unreadable) // what cannot be read is what we have made
        unlink(file_.c_str());
    file_.clear();
} catch (...) { // NOLINT(bugprone-empty-catch): the file is a dead process's soon
}

} // namespace brisolt::tty

#include "platform/file.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

#include "platform/error_text.h"
#include "platform/posix/file_holders.h"
#include "platform/posix/file_names.h"
#include "platform/posix/file_owner.h"
#include "platform/posix/open_files.h"

namespace brisolt::file {
namespace {

constexpr const char* inUse = "somebody is using it";
constexpr const char* inUseHere = "this program is using it";
constexpr const char* othersDeny = "another program denies writing to it";
constexpr const char* othersWrite = "another program is writing to it";

bool writes(const How& how) noexcept {
    return (uses(how.access) & writing) != 0;
}

/// Null, or why a file of that kind cannot be used.
const char* refusal(const Status& file, const How& how) noexcept {
    if (!S_ISREG(file.st_mode) && !S_ISCHR(file.st_mode))
        return "it is no file";
    if (writes(how) && S_ISREG(file.st_mode) && writeProtected(file))
        return "it is read-only";
    return nullptr;
}

/// The same before anything is opened: an open alone can disturb what is no file.
const char* refusalBefore(const HostName& name, const How& how) noexcept {
    Status file{};
    if (::stat(name.text(), &file) != 0)
        return nullptr; // opening it will tell
    if (const char* reason = refusal(file, how))
        return reason;
    if (how.sharing == Sharing::all || how.forEntries || !S_ISREG(file.st_mode))
        return nullptr;
    Look look(name);
    bool held = look.descriptor() >= 0 && look.keepOthersOff(denies(how.sharing)) == Look::Answer::held;
    return held ? inUse : nullptr;
}

/// A pipe without a reader or a silent terminal must not hold up whoever logs, hence O_NONBLOCK. Reading
/// is asked for because network file systems grant a shared lock to readers only.
int32_t openAs(const HostName& name, const How& how, bool& isNew) noexcept {
    int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (writes(how) ? O_RDWR : O_RDONLY);
    if (how.forEntries)
        flags |= O_APPEND;
    if (how.opening != Opening::createNew) {
        int32_t existing = openByName(name, flags);
        if (existing >= 0 || how.opening == Opening::existing || errno != ENOENT)
            return existing;
    }
    int32_t made = openByName(name, flags, O_CREAT | O_EXCL, how.permissions);
    isNew = made >= 0;
    // Somebody made it meanwhile, or a link of that name leads to where nothing is yet.
    if (!isNew && how.opening == Opening::createMissing && errno == EEXIST)
        return openByName(name, flags, O_CREAT, how.permissions);
    return made;
}

/// False only when another process is in the way.
bool lockAgainstOthers(int32_t descriptor, Sharing sharing) noexcept {
    int operation = sharing == Sharing::all ? LOCK_SH : LOCK_EX;
    return ::flock(descriptor, operation | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

/// Readers that deny writing to others show it by a lock on a byte where no file has one.
struct flock farByte(int kind) noexcept {
    struct flock lock {};
    lock.l_type = static_cast<short>(kind);
    lock.l_whence = SEEK_SET;
    lock.l_start = std::numeric_limits<off_t>::max() - 1;
    lock.l_len = 1;
    return lock;
}

void denyWriters(int32_t descriptor) noexcept {
    struct flock lock = farByte(F_RDLCK);
    ::fcntl(descriptor, F_OFD_SETLK, &lock);
}

bool deniedByReader(int32_t descriptor) noexcept {
    struct flock lock = farByte(F_WRLCK);
    return ::fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

void leave(int32_t descriptor) noexcept {
    // Closing alone would leave the lock with a child that was forked meanwhile.
    ::flock(descriptor, LOCK_UN);
    OpenFiles::instance().leave(descriptor);
}

/// Null, or why the open file cannot be used.
const char* enter(int32_t descriptor, const How& how, bool& entered) noexcept {
    Status file{};
    if (::fstat(descriptor, &file) != 0)
        return std::strerror(errno);
    if (const char* reason = refusal(file, how))
        return reason;
    // A device takes what everybody sends: there are no entries in it to protect.
    if (!S_ISREG(file.st_mode))
        return nullptr;
    auto entry = OpenFiles::instance().enter(descriptor, file, uses(how.access), denies(how.sharing));
    if (entry != OpenFiles::Entry::made)
        return entry == OpenFiles::Entry::refused ? inUseHere : "memory is short";
    entered = true;
    if (writes(how) && deniedByReader(descriptor))
        return othersDeny;
    if (writes(how) && !lockAgainstOthers(descriptor, how.sharing))
        return othersWrite;
    if (!writes(how) && how.sharing != Sharing::all)
        denyWriters(descriptor);
    return nullptr;
}

/// Null, or why the open file is not where it is to be.
const char* position(int32_t descriptor, const How& how) noexcept {
    bool placed = !how.atEnd || ::lseek(descriptor, 0, SEEK_END) >= 0;
    return placed ? nullptr : std::strerror(errno);
}

/// A write beyond the program's limit of file sizes fails; the signal that comes with it would by default end
/// the program.
class LimitSignalHeld {
public:
    LimitSignalHeld() noexcept {
        sigemptyset(&limit_);
        sigaddset(&limit_, SIGXFSZ);
        pthread_sigmask(SIG_BLOCK, &limit_, &before_);
    }
    LimitSignalHeld(const LimitSignalHeld&) = delete;
    LimitSignalHeld& operator=(const LimitSignalHeld&) = delete;
    ~LimitSignalHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    /// It came, and nobody is to hear of it.
    void drop() const noexcept {
        const int error = errno;
        timespec none{};
        sigtimedwait(&limit_, nullptr, &none);
        errno = error;
    }

private:
    sigset_t limit_;
    sigset_t before_;
};

template <class Call> auto untilUninterrupted(Call call) noexcept {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// A descriptor by all the rules, or why there is none.
struct Opened {
    int32_t descriptor = -1;
    bool entered = false;
    const char* refusal = nullptr;
};

Opened refused(const char* reason, int32_t code) noexcept {
    errno = code;
    return {.refusal = reason};
}

/// Somebody else may have opened and filled a file as soon as it was there.
bool isOthers(const char* refusal) noexcept {
    return refusal == inUseHere || refusal == othersDeny || refusal == othersWrite;
}

/// It was deleted between our open and our entry, by who made it and could not use it.
bool hasNoName(int32_t descriptor) noexcept {
    Status file{};
    return ::fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_nlink == 0;
}

Opened openOnce(const char* path, const How& how) noexcept {
    HostName name(path);
    if (const char* reason = refusalBefore(name, how))
        return refused(reason, EBUSY);
    bool isNew = false;
    Opened opened{.descriptor = openAs(name, how, isNew)};
    if (opened.descriptor < 0)
        return refused(std::strerror(errno), errno);
    const char* reason = enter(opened.descriptor, how, opened.entered);
    if (reason == nullptr)
        reason = position(opened.descriptor, how);
    if (reason == nullptr)
        return opened;
    if (isNew && !isOthers(reason))
        ::unlink(name.text());
    if (opened.entered)
        leave(opened.descriptor);
    ::close(opened.descriptor);
    return refused(reason, EBUSY);
}

Opened openByRules(const char* path, const How& how) noexcept {
    Opened opened = openOnce(path, how);
    for (int32_t again = 0;
         again < 3 && opened.entered && how.opening == Opening::createMissing && hasNoName(opened.descriptor);
         ++again) {
        leave(opened.descriptor);
        ::close(opened.descriptor);
        opened = openOnce(path, how);
    }
    return opened;
}

/// The name under which the host shows what a descriptor has open, also when that has no name of its own.
struct DescriptorName {
    explicit DescriptorName(int32_t descriptor) noexcept {
        std::snprintf(text, sizeof text, "/proc/self/fd/%d", descriptor);
    }
    char text[32];
};

} // namespace

File::File(const char* path, const How& how) noexcept {
    Opened opened = openByRules(path, how);
    descriptor_ = opened.descriptor;
    entered_ = opened.entered;
    // For people. A file that need not be there may be missing without a word.
    int error = errno;
    if (opened.refusal != nullptr && (how.opening != Opening::existing || error != ENOENT))
        tell(writes(how) ? "write to" : "read", path, opened.refusal);
    errno = error;
}

File::File(File&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), entered_(std::exchange(other.entered_, false)) {}

File& File::operator=(File&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    std::swap(entered_, other.entered_);
    return *this;
}

File File::unnamed(const char* directory, uint32_t permissions) noexcept {
    File file;
    file.descriptor_ = ::open(HostName(directory).text(), O_TMPFILE | O_RDWR | O_CLOEXEC, permissions);
    if (file && ::access(DescriptorName(file.descriptor_).text, F_OK) != 0)
        file.close(); // it could never be given a name
    return file;
}

bool File::giveName(const char* path) noexcept {
    return ::linkat(AT_FDCWD, DescriptorName(descriptor_).text, AT_FDCWD, HostName(path).text(),
                    AT_SYMLINK_FOLLOW) == 0;
}

bool File::close() noexcept {
    if (descriptor_ < 0)
        return true;
    if (std::exchange(entered_, false))
        leave(descriptor_);
    return ::close(std::exchange(descriptor_, -1)) == 0;
}

int32_t File::read(void* buffer, int32_t count) noexcept {
    if (count < 1)
        return 0;
    auto size = static_cast<std::size_t>(count);
    return static_cast<int32_t>(untilUninterrupted([&] { return ::read(descriptor_, buffer, size); }));
}

int32_t File::write(const void* bytes, int32_t count) noexcept {
    auto size = static_cast<std::size_t>(count > 0 ? count : 0);
    LimitSignalHeld held;
    auto written = untilUninterrupted([&] { return ::write(descriptor_, bytes, size); });
    if (written < 0 && errno == EFBIG)
        held.drop();
    return static_cast<int32_t>(written);
}

int64_t File::seek(int64_t position) noexcept {
    return ::lseek(descriptor_, position, SEEK_SET);
}

int64_t File::seekEnd() noexcept {
    return ::lseek(descriptor_, 0, SEEK_END);
}

int64_t File::size() const noexcept {
    Status status{};
    return descriptor_ < 0 || ::fstat(descriptor_, &status) != 0 ? -1 : int64_t{status.st_size};
}

uint32_t File::permissions() const noexcept {
    Status status{};
    return ::fstat(descriptor_, &status) == 0 ? status.st_mode & 0777 : 0600;
}

bool File::truncate(int64_t size) noexcept {
    bool isDevice = descriptor_ >= 0 && !entered_;
    return isDevice || ::ftruncate(descriptor_, size) == 0;
}

bool File::takeOver(const char* path) noexcept {
    Status old{};
    return ::stat(HostName(path).text(), &old) == 0 && file::takeOver(descriptor_, old);
}

bool File::flush() noexcept {
    return ::fsync(descriptor_) == 0 || errno == EINVAL; // which says that there is no disk behind it
}

Appender::Appender(const char* path, Sharing sharing, Missing missing) noexcept
    : file_(path, {.access = Access::write,
                   .sharing = sharing,
                   .opening = missing == Missing::create ? Opening::createMissing : Opening::existing,
                   .forEntries = true}) {}

bool Appender::append(std::string_view text) noexcept {
    auto size = static_cast<int32_t>(text.size());
    return file_.write(text.data(), size) == size;
}

int32_t lastFailure() noexcept {
    return errno;
}

void tell(const char* act, const char* path, const char* reason) noexcept try {
    setErrorText("cannot " + std::string(act) + " " + path + ": " + reason);
} catch (const std::exception&) {
    return; // no memory for the text
}

void tellFailure(const char* act, const char* path) noexcept {
    tell(act, path, std::strerror(errno));
}

} // namespace brisolt::file

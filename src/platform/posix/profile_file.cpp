#include "platform/profile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/error_text.h"
#include "platform/posix/file_names.h"
#include "platform/posix/file_owner.h"

namespace brisolt::profile {

namespace {

using Status = struct stat;

constexpr uint32_t patience = 10'000; ///< milliseconds, for another writer
constexpr uint32_t lookAgain = 2;

bool refuse(const std::string& path, const std::string& reason) {
    setErrorText("cannot write to " + path + ": " + reason);
    return false;
}

/// A profile as it is on the disk. An absent one has no text.
struct Profile {
    bool there = false;
    Status status{};
    std::string text;

    bool load(const std::string& path) {
        there = ::stat(path.c_str(), &status) == 0;
        text.clear();
        if (!there)
            return errno == ENOENT || refuse(path, std::strerror(errno));
        if (!S_ISREG(status.st_mode))
            return refuse(path, "it is no file to write to");
        std::optional<std::string> now = read(path.c_str());
        if (!now)
            return refuse(path, "what it holds cannot be read");
        text = std::move(*now);
        return true;
    }

    /// A file is put in its place whatever its permissions are, so they are asked for. One that nobody may
    /// write is not for the superuser either.
    bool writable(const std::string& path) const {
        constexpr mode_t anybodyWrites = S_IWUSR | S_IWGRP | S_IWOTH;
        bool allowed = !there || ((status.st_mode & anybodyWrites) != 0 &&
                                  ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0);
        return allowed || refuse(path, "it is read-only");
    }
};

/// The file beside a profile that takes its new text, and is the lock of whoever changes it: it is written by
/// the one who holds its lock, and then becomes the profile. One that a crash has left behind is nobody's and
/// serves the next.
class Successor {
    static constexpr std::size_t longestPart = 240; ///< of the profile's name: the host takes 255 in all
public:
    explicit Successor(const std::string& profile) : profile_(profile) {
        std::filesystem::path path(profile);
        std::string name = ".";
        name.append(path.filename().string().substr(0, longestPart)).append(".new");
        path_ = (path.parent_path() / name).string();
    }
    Successor(const Successor&) = delete;
    Successor& operator=(const Successor&) = delete;
    ~Successor() {
        if (descriptor_ < 0)
            return;
        if (!published_)
            ::unlink(path_.c_str());
        leave();
    }

    /// Waits until nobody else changes the profile.
    bool lock(const Profile& profile);
    bool publish(const std::string& text, const Profile& profile);

private:
    enum class Try { held, busy, refused };

    Try tryLock(const Profile& profile) noexcept;
    Try check(const Profile& profile) const noexcept;
    bool write(std::string_view text) const noexcept;
    // Closing alone would leave the lock with a child that was forked meanwhile.
    void leave() noexcept {
        ::flock(descriptor_, LOCK_UN);
        ::close(descriptor_);
        descriptor_ = -1;
    }

    std::string profile_;
    std::string path_;
    int32_t descriptor_ = -1;
    bool published_ = false;
};

bool Successor::lock(const Profile& profile) {
    auto end = clock::Deadline::in(patience);
    for (;;) {
        switch (tryLock(profile)) {
        case Try::held: return true;
        case Try::refused: return refuse(profile_, path_ + ": " + std::strerror(errno));
        case Try::busy: break;
        }
        if (end.passed())
            return refuse(profile_, "another program holds " + path_);
        clock::sleep(lookAgain);
    }
}

Successor::Try Successor::tryLock(const Profile& profile) noexcept {
    // The text of a profile that others may not read is not for them on its way either.
    mode_t mode = profile.there ? 0600 : 0666;
    int flags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    descriptor_ = ::open(path_.c_str(), flags | O_CREAT | O_EXCL, mode);
    const bool made = descriptor_ >= 0;
    const bool found = !made && errno == EEXIST;
    if (found)
        descriptor_ = ::open(path_.c_str(), flags);
    if (descriptor_ < 0) {
        int32_t reason = errno;
        bool somebodys = reason == EACCES && ::access(path_.c_str(), F_OK) == 0;
        errno = reason;
        bool gone = found && reason == ENOENT;
        return somebodys || gone || reason == EINTR ? Try::busy : Try::refused;
    }
    Try result = check(profile);
    if (result != Try::held) {
        int32_t reason = errno;
        if (made && result == Try::refused)
            ::unlink(path_.c_str());
        leave();
        errno = reason;
    }
    return result;
}

/// Whether what has been opened is ours, and still where it was: the holder of the lock may have made it the
/// profile meanwhile.
Successor::Try Successor::check(const Profile& profile) const noexcept {
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK || errno == EINTR ? Try::busy : Try::refused;
    Status opened{};
    Status named{};
    if (::fstat(descriptor_, &opened) != 0)
        return Try::refused;
    if (::lstat(path_.c_str(), &named) != 0)
        return errno == ENOENT ? Try::busy : Try::refused;
    if (opened.st_dev != named.st_dev || opened.st_ino != named.st_ino)
        return Try::busy;
    // Where everybody may make files, somebody could have put another file in the way by a link.
    errno = EEXIST;
    if (!S_ISREG(opened.st_mode) || opened.st_nlink != 1)
        return Try::refused;
    bool ours = opened.st_uid == ::geteuid() || (profile.there && opened.st_uid == profile.status.st_uid);
    if (!ours)
        return Try::busy;
    // Those who may not read the profile may have one open that was left behind for all to read.
    constexpr mode_t others = S_IRWXG | S_IRWXO;
    if (profile.there && (opened.st_mode & others & ~profile.status.st_mode) != 0)
        return ::unlink(path_.c_str()) == 0 ? Try::busy : Try::refused;
    return Try::held;
}

bool Successor::write(std::string_view text) const noexcept {
    if (::ftruncate(descriptor_, 0) != 0)
        return false;
    while (!text.empty()) {
        ssize_t count = ::write(descriptor_, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return false;
        text.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return true;
}

bool Successor::publish(const std::string& text, const Profile& profile) {
    // Permissions first: nobody may look into the file who may not look into the profile.
    bool mayBeRead = !profile.there || file::takeOver(descriptor_, profile.status);
    published_ = mayBeRead && write(text) && ::fsync(descriptor_) == 0 &&
                 ::rename(path_.c_str(), profile_.c_str()) == 0;
    return published_ || refuse(profile_, std::strerror(errno));
}

/// The text with all changes made.
std::string changed(const std::string& text, std::string_view section, std::span<const Change> changes) {
    std::string copy = text;
    for (const Change& change : changes)
        apply(copy, section, change);
    return copy;
}

} // namespace

bool write(const char* file, std::string_view section, std::span<const Change> changes) {
    if (*file == 0)
        return refuse("a profile", "it has no name");
    std::string path = file::realPlace(file); // a link to it is to stay one
    if (path.empty())
        return false;
    for (const Change& change : changes)
        if (!storable(section, change))
            return refuse(path, "no line of it can hold [" + std::string(section) + "] " +
                                    std::string(change.key) + "=" + change.value.value_or(""));
    Profile now;
    if (!now.load(path))
        return false;
    if (changed(now.text, section, changes) == now.text)
        return true; // a look is enough, nobody has to be kept out
    Successor successor(path);
    if (!now.writable(path) || !successor.lock(now) || !now.load(path))
        return false;
    std::string text = changed(now.text, section, changes);
    return text == now.text || (now.writable(path) && successor.publish(text, now));
}

} // namespace brisolt::profile

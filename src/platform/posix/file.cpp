#include "platform/file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/error_text.h"
#include "platform/posix/file_names.h"

namespace brisolt::file {
namespace {

struct OpenFile {
    int32_t descriptor;
    dev_t device;
    ino_t inode;
    Sharing sharing;
};

/// The files that the process has open for appending. Not every file system knows advisory locks, but the
/// threads of one program keep the sharing rules on all of them.
struct OpenFiles {
    std::mutex mutex;
    std::vector<OpenFile> files;

    bool enter(const OpenFile& file) noexcept {
        try {
            std::lock_guard lock(mutex);
            for (const OpenFile& other : files) {
                bool same = other.device == file.device && other.inode == file.inode;
                if (same && (other.sharing == Sharing::readOnly || file.sharing == Sharing::readOnly))
                    return false;
            }
            files.push_back(file);
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }
    void leave(int32_t descriptor) noexcept {
        std::lock_guard lock(mutex);
        std::erase_if(files, [=](const OpenFile& file) { return file.descriptor == descriptor; });
    }

    /// Never destroyed: threads of the library may still log while the program's statics go.
    static OpenFiles& instance() {
        static OpenFiles& files = *new OpenFiles;
        return files;
    }
};

/// A pipe without a reader or a silent terminal must not hold up whoever logs, hence O_NONBLOCK. Reading
/// is asked for because network file systems grant a shared lock to readers only.
int32_t openForAppending(const char* path, Missing missing) noexcept {
    int flags = O_RDWR | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    return openByName(path, flags, missing == Missing::create ? O_CREAT : 0);
}

/// False only when another process is in the way.
bool lockAgainstOthers(int32_t descriptor, Sharing sharing) noexcept {
    int operation = sharing == Sharing::readOnly ? LOCK_EX : LOCK_SH;
    return ::flock(descriptor, operation | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

/// For people. A file that need not be there may be missing without a word.
void tellRefusal(const char* path, Missing missing, const char* reason) noexcept try {
    if (missing == Missing::create)
        setErrorText("cannot write to " + std::string(path) + ": " + reason);
} catch (const std::exception&) {
    return; // no memory for the text
}

} // namespace

Appender::Appender(const char* path, Sharing sharing, Missing missing) noexcept {
    int32_t descriptor = openForAppending(path, missing);
    if (descriptor < 0) {
        tellRefusal(path, missing, std::strerror(errno));
        return;
    }
    const char* reason = enter(descriptor, sharing);
    if (reason != nullptr) {
        tellRefusal(path, missing, reason);
        ::close(descriptor);
        return;
    }
    descriptor_ = descriptor;
}

/// Null, or why the open file cannot be used.
const char* Appender::enter(int32_t descriptor, Sharing sharing) noexcept {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISCHR(status.st_mode)))
        return "it is no file to write to";
    // A device takes what everybody sends: there are no entries in it to protect.
    if (!S_ISREG(status.st_mode))
        return nullptr;
    constexpr mode_t anybodyWrites = S_IWUSR | S_IWGRP | S_IWOTH;
    if ((status.st_mode & anybodyWrites) == 0)
        return "it is read-only"; // for the superuser, too
    registered_ = OpenFiles::instance().enter({descriptor, status.st_dev, status.st_ino, sharing});
    if (!registered_)
        return "this program is writing to it";
    if (lockAgainstOthers(descriptor, sharing))
        return nullptr;
    OpenFiles::instance().leave(descriptor);
    registered_ = false;
    return "another program is writing to it";
}

Appender::~Appender() {
    if (descriptor_ < 0)
        return;
    if (registered_) {
        // Closing alone would leave the lock with a child that was forked meanwhile.
        ::flock(descriptor_, LOCK_UN);
        OpenFiles::instance().leave(descriptor_);
    }
    ::close(descriptor_);
}

bool Appender::empty() noexcept {
    return !registered_ || ::ftruncate(descriptor_, 0) == 0;
}

bool Appender::append(std::string_view text) noexcept {
    return ::write(descriptor_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

} // namespace brisolt::file

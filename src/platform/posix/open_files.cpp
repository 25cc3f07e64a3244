#include "platform/posix/open_files.h"

#include <algorithm>
#include <exception>

#include "platform/lasting.h"
#include "platform/mutex.h"

namespace brisolt::file {

OpenFiles& OpenFiles::instance() noexcept {
    static Lasting<OpenFiles> files;
    return *files;
}

bool OpenFiles::compatible(const Status& file, uint32_t uses, uint32_t denies) const noexcept {
    return std::none_of(users_.begin(), users_.end(), [&](const User& user) {
        bool same = user.device == file.st_dev && user.inode == file.st_ino;
        return same && ((user.denies & uses) != 0 || (denies & user.uses) != 0);
    });
}

bool OpenFiles::admits(const Status& file, uint32_t uses, uint32_t denies) noexcept {
    MutexLock guard(mutex_);
    return compatible(file, uses, denies);
}

OpenFiles::Entry OpenFiles::enter(int32_t descriptor, const Status& file, uint32_t uses,
                                  uint32_t denies) noexcept try {
    MutexLock guard(mutex_);
    if (!compatible(file, uses, denies))
        return Entry::refused;
    users_.push_back({descriptor, file.st_dev, file.st_ino, uses, denies});
    return Entry::made;
} catch (const std::exception&) {
    return Entry::noMemory;
}

void OpenFiles::leave(int32_t descriptor) noexcept {
    MutexLock guard(mutex_);
    std::erase_if(users_, [=](const User& user) { return user.descriptor == descriptor; });
}

} // namespace brisolt::file

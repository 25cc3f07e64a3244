// The files that the process has open through this library, with what each user does and what it denies to
// others. Not every file system knows leases and advisory locks, and neither knows what its users deny, but
// the threads of one program keep the sharing rules on all of them.
#pragma once

#include <cstdint>
#include <vector>

#include <sys/stat.h>

#include "platform/file.h"
#include "platform/mutex.h"

namespace brisolt::file {

using Status = struct stat;

/// What is done with a file, or kept from others, as bits.
inline constexpr uint32_t reading = 1;
inline constexpr uint32_t writing = 2;

constexpr uint32_t uses(Access access) noexcept {
    switch (access) {
    case Access::read: return reading;
    case Access::write: return writing;
    case Access::readWrite: break;
    }
    return reading | writing;
}
constexpr uint32_t denies(Sharing sharing) noexcept {
    switch (sharing) {
    case Sharing::all: return 0;
    case Sharing::readOnly: return writing;
    case Sharing::none: break;
    }
    return reading | writing;
}

class OpenFiles {
public:
    static OpenFiles& instance() noexcept;

    /// Whether those who have the file open put up with another user.
    bool admits(const Status& file, uint32_t uses, uint32_t denies) noexcept;
    enum class Entry { made, refused, noMemory };
    Entry enter(int32_t descriptor, const Status& file, uint32_t uses, uint32_t denies) noexcept;
    void leave(int32_t descriptor) noexcept;

private:
    struct User {
        int32_t descriptor;
        dev_t device;
        ino_t inode;
        uint32_t uses;
        uint32_t denies;
    };
    bool compatible(const Status& file, uint32_t uses, uint32_t denies) const noexcept WITH_LOCK(mutex_);

    Mutex mutex_;
    std::vector<User> users_ GUARDED_BY(mutex_);
};

/// Nobody has permission to write it: read-only for the superuser, too.
inline bool writeProtected(const Status& file) noexcept {
    return (file.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

} // namespace brisolt::file

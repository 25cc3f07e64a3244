// A new file in the place of an old one belongs to whom the old one belonged to.
#pragma once

#include <cstdint>
#include <sys/stat.h>
#include <unistd.h>

namespace brisolt::file {

/// Owner and permissions of the file that is replaced. False when the permissions cannot be had.
inline bool takeOver(int32_t descriptor, const struct stat& old) noexcept {
    struct stat mine {};
    if (::fstat(descriptor, &mine) != 0)
        return false;
    if (mine.st_uid != old.st_uid || mine.st_gid != old.st_gid) {
        // Only the superuser gives files away; a group that one is in can be kept.
        bool given = ::fchown(descriptor, old.st_uid, old.st_gid) == 0 ||
                     ::fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) == 0;
        static_cast<void>(given);
    }
    return ::fchmod(descriptor, old.st_mode & 07777) == 0;
}

} // namespace brisolt::file

#include "platform/posix/file_names.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace brisolt::file {

namespace {

/// Whether there is a file of that very name, or something else than its absence in the way.
bool standsAsWritten(const char* path) noexcept {
    return ::access(path, F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

} // namespace

int32_t openByName(const char* path, int flags, int creation) noexcept {
    if (std::strchr(path, '\\') != nullptr && standsAsWritten(path))
        return ::open(path, flags);
    char translated[4096];
    std::size_t length = std::strlen(path);
    if (length >= sizeof translated) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::replace_copy(path, path + length + 1, translated, '\\', '/');
    return ::open(translated, flags | creation, 0666);
}

std::string nameOnHost(const char* path) {
    std::string name(path);
    if (!standsAsWritten(path))
        std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

} // namespace brisolt::file

#include "platform/posix/file_names.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace brisolt::file {

int32_t openByName(const char* path, int flags, int creation) noexcept {
    if (std::strchr(path, '\\') != nullptr) {
        int32_t descriptor = ::open(path, flags);
        if (descriptor >= 0 || (errno != ENOENT && errno != ENOTDIR))
            return descriptor;
    }
    char translated[4096];
    std::size_t length = std::strlen(path);
    if (length >= sizeof translated) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::replace_copy(path, path + length + 1, translated, '\\', '/');
    return ::open(translated, flags | creation, 0666);
}

} // namespace brisolt::file

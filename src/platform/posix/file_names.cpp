#include "platform/posix/file_names.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

namespace brisolt::file {

namespace {

constexpr int32_t mostLinks = 40; ///< as the host itself follows them
constexpr int32_t leaseTries = 50;
constexpr timespec leasePause{0, 1'000'000};

/// Whether there is a file of that very name, or something else than its absence in the way.
bool standsAsWritten(const char* path) noexcept {
    return ::access(path, F_OK) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

/// How much of a name is a directory that is there under that very name, backslashes and all.
std::size_t directoryAsWritten(char* name) noexcept {
    char* slash = std::strrchr(name, '/');
    if (slash == nullptr || std::find(name, slash, '\\') == slash)
        return 0;
    *slash = '\0';
    bool there = ::access(name, F_OK) == 0;
    *slash = '/';
    return there ? static_cast<std::size_t>(slash - name) : 0;
}

/// A signal of the program's is no reason to say that there is no such file; network file systems are interrupted.
int32_t openThroughSignals(const char* path, int flags, uint32_t permissions = 0) noexcept {
    int32_t descriptor = -1;
    do {
        descriptor = ::open(path, flags, permissions);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

int32_t openOnce(const HostName& name, int flags, int creation, uint32_t permissions) noexcept {
    if (!name.asWritten())
        return openThroughSignals(name.text(), flags | creation, permissions);
    if ((creation & O_EXCL) == 0)
        return openThroughSignals(name.text(), flags);
    errno = EEXIST;
    return -1;
}

} // namespace

HostName::HostName(const char* path, Spelling spelling) noexcept {
    translated_[0] = '\0';
    if (spelling == Spelling::hosts || (std::strchr(path, '\\') != nullptr && standsAsWritten(path))) {
        asWritten_ = path;
        return;
    }
    std::size_t length = std::strlen(path);
    if (length >= sizeof translated_)
        return;
    std::memcpy(translated_, path, length + 1);
    char* end = translated_ + length;
    std::replace(translated_ + directoryAsWritten(translated_), end, '\\', '/');
}

// A lease is broken by the very attempt to open; whoever has it is told and gives it up.
int32_t openByName(const HostName& name, int flags, int creation, uint32_t permissions) noexcept {
    for (int32_t tries = 1;; ++tries) {
        int32_t descriptor = openOnce(name, flags, creation, permissions);
        if (descriptor >= 0 || errno != EWOULDBLOCK || tries == leaseTries)
            return descriptor;
        ::nanosleep(&leasePause, nullptr);
    }
}

std::string nameOnHost(const char* path) {
    return HostName(path).text();
}

// Not by the standard library's own means: its calls of the host cannot be made to fail by a test. A directory that
// has gone has no path: what is in it keeps its short name, and the host says what is wrong with that.
std::string realPlace(const char* path) {
    std::array<char, PATH_MAX> text{};
    std::string place = nameOnHost(path);
    if (place.empty()) {
        tell("find", path, "its name is too long");
        return place;
    }
    if (place.front() != '/' && ::getcwd(text.data(), text.size()) != nullptr)
        place = std::string(text.data()) + '/' + place;
    for (int32_t links = 0; links < mostLinks; ++links) {
        const ssize_t count = ::readlink(place.c_str(), text.data(), text.size());
        if (count < 0 && (errno == EIO || errno == ENOMEM)) {
            tellFailure("find", path); // a link that is taken for a file would be replaced by one
            return {};
        }
        if (count < 0)
            break;
        const std::size_t directory = text[0] == '/' ? 0 : place.rfind('/') + 1;
        place.replace(directory, std::string::npos, text.data(), static_cast<std::size_t>(count));
    }
    return place;
}

} // namespace brisolt::file

// Exported: directories and paths.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "api/border.h"
#include "brisolt/files.h"
#include "platform/file.h"
#include "port/record.h"
#include "util/paths.h"

using namespace brisolt;

namespace {

std::string_view text(const char* string) noexcept {
    return string == nullptr ? std::string_view() : string;
}

/// What is too long is cut to the room, terminator included.
void store(char* buffer, std::string_view string, std::size_t room) noexcept {
    if (buffer == nullptr)
        return;
    std::size_t length = std::min(string.size(), room - 1);
    if (length > 0)
        std::memcpy(buffer, string.data(), length);
    buffer[length] = '\0';
}

} // namespace

// ---- directories

BRISOLT_EXPORT int32_t ComGetCurrentDirectory(char* buffer) {
    if (buffer == nullptr)
        return -1;
    return guarded(-1, [=] {
        std::error_code failed;
        std::string path = std::filesystem::current_path(failed).string();
        if (failed || path.size() >= nameSize)
            return -1;
        store(buffer, path, nameSize);
        return static_cast<int32_t>(path.size());
    });
}
BRISOLT_EXPORT int32_t ComSetCurrentDirectory(const char* path) {
    if (path == nullptr)
        return -1;
    return guarded(-1, [=] {
        std::error_code failed;
        std::filesystem::current_path(file::nameOnHost(path), failed);
        return failed ? -1 : 1;
    });
}
BRISOLT_EXPORT int32_t ComCreateDirectory(const char* path) {
    if (path == nullptr)
        return 0;
    return guarded(0, [=] {
        std::error_code failed;
        return std::filesystem::create_directory(file::nameOnHost(path), failed) ? 1 : 0;
    });
}

// ---- paths

BRISOLT_EXPORT int32_t ComStripFileName(const char* path, char* name, char* directory) {
    std::string_view whole = text(path);
    paths::Place place = paths::split(whole);
    bool fits =
        whole.size() <= paths::longest && place.file.size() < nameSize && place.directory.size() < nameSize;
    if (whole.empty() || !fits)
        return 0;
    // Either buffer may be the path itself.
    return guarded(0, [&] {
        std::string file(place.file), way(place.directory);
        store(name, file, nameSize);
        store(directory, way, nameSize);
        return 1;
    });
}

BRISOLT_EXPORT void ComSplitPath(const char* path, char* drive, char* directory, char* name,
                                 char* extension) {
    paths::Parts parts = guarded({}, [=] { return paths::splitAtBackslashes(text(path)); });
    store(drive, parts.drive, paths::driveRoom);
    store(directory, parts.directory, nameSize);
    store(name, parts.name, nameSize);
    store(extension, parts.extension, nameSize);
}

BRISOLT_EXPORT void ComMakePath(char* output, const char* drive, const char* directory, const char* name,
                                const char* extension) {
    store(output,
          guarded({}, [=] { return paths::join(text(drive), text(directory), text(name), text(extension)); }),
          nameSize);
}

BRISOLT_EXPORT const char* _justname(const char* path) {
    return path == nullptr ? nullptr : guarded(path, [=] { return paths::file(path); });
}

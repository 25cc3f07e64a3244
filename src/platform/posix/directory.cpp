#include "platform/directory.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <system_error>

#include "platform/error_text.h"
#include "platform/posix/file_names.h"

namespace brisolt::directory {

namespace {

// Not the standard library's iterator: where that runs out of memory on its way, it ends the program.
struct Close {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};
using Stream = std::unique_ptr<DIR, Close>;

/// A directory that is not there, or not for us to read, has no files for us.
void refuseUnlessAbsent(const std::string& directory, int32_t error) {
    constexpr std::array absent{0, ENOENT, ENOTDIR, EACCES, ELOOP, ENAMETOOLONG};
    if (std::find(absent.begin(), absent.end(), error) != absent.end())
        return;
    setErrorTextFrom({"cannot list ", directory, ": ", std::strerror(error)});
    throw std::system_error(error, std::generic_category());
}

/// A directory, or a link to one.
bool isDirectory(DIR* parent, const dirent& entry) noexcept {
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK)
        return entry.d_type == DT_DIR;
    struct stat status {};
    return ::fstatat(::dirfd(parent), entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

std::string onHost(std::string_view name) {
    while (name.ends_with('\\') || name.ends_with('/'))
        name.remove_suffix(1);
    return file::nameOnHost(std::string(name).c_str()) + '/';
}

std::vector<std::string> names(const std::string& directory, const Choice& chosen) {
    std::vector<std::string> found;
    errno = 0;
    Stream stream(::opendir(directory.c_str()));
    while (const dirent* entry = stream ? ::readdir(stream.get()) : nullptr) {
        if (chosen(entry->d_name) && !isDirectory(stream.get(), *entry))
            found.emplace_back(entry->d_name);
        errno = 0; // by which its end is told from its failure
    }
    refuseUnlessAbsent(directory, errno);
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<std::string> files(const std::string& directory, std::string_view prefix) {
    std::vector<std::string> found =
        names(directory, [prefix](std::string_view name) { return name.starts_with(prefix); });
    for (std::string& name : found)
        name.insert(0, directory);
    return found;
}

} // namespace brisolt::directory

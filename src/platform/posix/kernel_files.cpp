#include "platform/posix/kernel_files.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include <climits>
#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace brisolt::kernelFiles {

namespace {

thread_local int32_t failure = 0;

/// A device may go while it is looked at, and what is no link or no directory has none to follow.
void noteFailure() noexcept {
    constexpr std::array nothing{ENOENT, ENOTDIR, EINVAL, ENODEV, ENXIO, EACCES, EPERM};
    if (failure == 0 && std::find(nothing.begin(), nothing.end(), errno) == nothing.end())
        failure = errno;
}

template <class Call> auto untilUninterrupted(Call call) noexcept {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    if (result < 0)
        noteFailure();
    return result;
}

} // namespace

int32_t takeFailure() noexcept {
    return std::exchange(failure, 0);
}

std::vector<std::string> entries(const std::string& directory) {
    std::vector<std::string> names;
    errno = 0;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(directory.c_str()), ::closedir);
    while (const dirent* entry = stream ? ::readdir(stream.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
        errno = 0; // by which its end is told from its failure
    }
    if (errno != 0)
        noteFailure();
    return names;
}

std::string firstLine(const std::string& file) {
    std::array<char, 4096> text{}; // no file of the kernel's with a line in it has more
    const int descriptor = untilUninterrupted([&] { return ::open(file.c_str(), O_RDONLY | O_CLOEXEC); });
    const ssize_t count =
        descriptor < 0 ? 0 : untilUninterrupted([&] { return ::read(descriptor, text.data(), text.size()); });
    if (descriptor >= 0)
        ::close(descriptor);
    std::string_view line(text.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    line = line.substr(0, line.find('\n'));
    while (line.ends_with(' ') || line.ends_with('\r'))
        line.remove_suffix(1);
    return std::string(line);
}

std::string linkedName(const std::string& link) {
    std::array<char, PATH_MAX> text{};
    const ssize_t count =
        untilUninterrupted([&] { return ::readlink(link.c_str(), text.data(), text.size()); });
    const std::string_view path(text.data(), static_cast<std::size_t>(count > 0 ? count : 0));
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string resolved(const std::string& path) {
    std::array<char, PATH_MAX> text{};
    if (::realpath(path.c_str(), text.data()) != nullptr)
        return text.data();
    noteFailure();
    return {};
}

std::string parent(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool isThere(const std::string& path) noexcept {
    return untilUninterrupted([&] { return ::access(path.c_str(), F_OK); }) == 0;
}

} // namespace brisolt::kernelFiles

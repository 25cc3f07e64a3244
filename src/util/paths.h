// Paths taken apart and put together.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brisolt::paths {

inline constexpr int32_t longest = 260; ///< characters that are looked at
inline constexpr int32_t driveRoom = 3; ///< a letter, a colon and a terminator

/// The usual rule: a drive is a letter and a colon, the directory goes through the last slash of either
/// kind, and the rest is the file.
struct Place {
    std::string_view directory; ///< with the drive before it
    std::string_view file;
};
Place split(std::string_view path) noexcept;

/// The parts of a path in which only the backslash separates and the extension starts at the first dot.
struct Parts {
    std::string drive, directory, name, extension;
};
Parts splitAtBackslashes(std::string_view path);

/// The four parts put together, with the separators that lack.
std::string join(std::string_view drive, std::string_view directory, std::string_view name,
                 std::string_view extension);
/// A file in a directory. An empty directory adds nothing: the file is in the current one.
std::string inside(std::string_view directory, std::string_view file);

/// Where the file part first stands in the path.
const char* file(const char* path);

} // namespace brisolt::paths

// Directories, and the files in them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace brisolt::directory {

/// A directory that a program names with either separator as this host knows it, ending with its separator.
std::string onHost(std::string_view name);
/// The paths of the files (directories left out) whose names begin with the prefix, in the order of the
/// names. None when the directory cannot be read.
std::vector<std::string> files(const std::string& directory, std::string_view prefix);

} // namespace brisolt::directory

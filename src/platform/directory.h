// Directories, and the files in them.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace brisolt::directory {

/// A directory that a program names with either separator as this host knows it, ending with its separator.
std::string onHost(std::string_view name);
using Choice = std::function<bool(std::string_view name)>;
/// The names of the files in a directory (directories and links to them left out) that are chosen, in order.
/// None when the directory is not there or not for us; a host that fails throws, and the error text says why.
std::vector<std::string> names(const std::string& directory, const Choice& chosen);
/// The paths of the files whose names begin with the prefix; the directory's name ends with its separator.
std::vector<std::string> files(const std::string& directory, std::string_view prefix);

} // namespace brisolt::directory

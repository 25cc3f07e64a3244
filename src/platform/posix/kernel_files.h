// What the kernel tells in files, links and directories. Not by the standard library's own means: where its
// directory iterator runs out of memory, it ends the program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace brisolt::kernelFiles {

/// Why a look of the calling thread's failed, the first since this was asked last: the host's error, 0 none. That
/// there is nothing to see, or that it is not for us, is no failure.
int32_t takeFailure() noexcept;

/// The names of what is in a directory; none when it cannot be read.
std::vector<std::string> entries(const std::string& directory);
/// Without blanks at its end; empty when there is none.
std::string firstLine(const std::string& file);
/// The last name of the path that a link holds; empty when it is no link.
std::string linkedName(const std::string& link);
/// The path without links in it; empty when nothing is there.
std::string resolved(const std::string& path);
/// The path without its last name.
std::string parent(const std::string& path);
bool isThere(const std::string& path) noexcept;

} // namespace brisolt::kernelFiles

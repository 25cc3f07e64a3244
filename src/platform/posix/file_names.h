// Names of files as programs give them, also those written for a host that separates with backslashes.
#pragma once

#include <cstdint>
#include <string>

namespace brisolt::file {

/// open() of a name with backslashes: of the file with that very name if there is one, else of the one with
/// slashes in their place. `creation` (O_CREAT and its like) goes for the latter only. -1 and errno.
int32_t openByName(const char* path, int flags, int creation = 0) noexcept;

/// The name of the file that openByName opens.
std::string nameOnHost(const char* path);

} // namespace brisolt::file

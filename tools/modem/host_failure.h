// What the host refuses, as an error that a person can act on.
#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace simulated {

/// Throws what errno says of a call concerning `what`, which may be a path. A std::runtime_error.
[[noreturn]] inline void failHost(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace simulated

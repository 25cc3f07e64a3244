// What the device names need to know about the host.
#pragma once

#include <cstdint>
#include <string>

namespace brisolt::deviceNames {

/// The device that stands behind a port's number while no other is mapped to it.
std::string hostDefault(int32_t port);

} // namespace brisolt::deviceNames

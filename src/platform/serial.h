// The host's serial devices: the driver behind a plain path, and what the host knows of the devices it has.
#pragma once

#include <cstdint>
#include <string>

#include "brisolt_host.h"

namespace brisolt::serial {

/// The driver of every path without a scheme.
const ComHostDriver& ttyDriver() noexcept;
/// Closes the descriptor that a tty was adopted from, unless its owner has and the number is another's now.
void closeAdoptedDescriptor(void* ttyDevice, int32_t handle) noexcept;
/// Closes a handle that came to us and that no device has taken over. The standard streams stay.
void closeForeign(int32_t handle) noexcept;

/// The device that stands behind a port's number while no other is mapped to it.
std::string defaultPath(int32_t port);
/// The host's serial devices, sorted by path. False past the last.
bool list(int32_t index, std::string& path, std::string& description);

} // namespace brisolt::serial

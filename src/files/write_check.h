// Two looks at what was written: a file against the bytes it should hold, and the first bytes of a stream.
#pragma once

#include <cstdint>
#include <span>

#include "port/port.h"

namespace brisolt::writeCheck {

/// Switches the port's verify log on. 1, or -1 when the file cannot be read.
int32_t startFile(Port& port, const char* file, const char* log);
/// 1 the file holds the bytes at the offset, -2 it holds others, -1 it cannot be read or is too short.
int32_t verifyFile(Port& port, const char* name, int32_t offset, std::span<const uint8_t> expected);

void startStream(Port& port) noexcept;
/// 1, or minus the number of bytes that matched before the first that does not.
int32_t verifyStream(Port& port, std::span<const uint8_t> bytes) noexcept;

} // namespace brisolt::writeCheck

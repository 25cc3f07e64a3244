// An array, element by element, into a debug file of its own.
#pragma once

#include <cstdint>
#include <span>

namespace brisolt {

/// 1; -1 the name is too long, or there is no memory. A file that cannot be written is left to the host's
/// error text.
int32_t dumpArray(std::span<const uint8_t> elements, const char* fileName);

} // namespace brisolt

// The names, with a value each, that a port keeps for its caller in its tracked memory.
#pragma once

#include <cstdint>
#include <string_view>

#include "port/port.h"

namespace brisolt::fileStrings {

/// False when the list is full or memory is short.
bool add(Port& port, std::string_view name, uint32_t value) noexcept;
int32_t count(Port& port) noexcept;
/// False beyond the last entry.
bool copyName(Port& port, int32_t index, char* buffer) noexcept;
bool value(Port& port, int32_t index, uint32_t& value) noexcept;
void empty(Port& port) noexcept;
/// Releases all tracked memory of the port, and with it the list. The result is the pool's.
int32_t releaseAll(Port& port) noexcept;

} // namespace brisolt::fileStrings

// Capture on failure: a port's protocol entries go to a ring in memory, which is saved to a numbered file
// when the program asks for it.
#pragma once

#include <cstdint>
#include <string_view>

#include "port/port.h"

namespace brisolt::capture {

/// Starts afresh with an empty ring. 1; -1 the directory's name is too long, or the capacity below 1; -2 no
/// memory: capture is off.
int32_t start(Port& port, std::string_view directory, int32_t capacity) noexcept;
/// 1; -2 capture is off.
int32_t add(Port& port, std::string_view bytes) noexcept;
void clear(Port& port) noexcept;
void stop(Port& port) noexcept;
/// 1; -2 capture has no directory; -3 the file cannot be written, -4 there is no slot left for one: what was
/// captured is kept.
int32_t save(Port& port);

} // namespace brisolt::capture

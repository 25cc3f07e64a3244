// How a terminal carries the bytes of a call.
#pragma once

#include <cstdint>

#include <asm/termbits.h>

namespace brisolt::service {

/// Eight bits that pass as they are, at that rate both ways, without any flow control.
void makeRaw(termios2& settings, uint32_t bitsPerSecond) noexcept;

} // namespace brisolt::service

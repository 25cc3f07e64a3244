// Is a thread of this process alive, and is it the one we knew? Identifiers are used again.
#pragma once

#include <cstdint>

namespace brisolt {

bool threadLives(uint32_t thread) noexcept;

/// A number that tells the thread from others that have had its identifier, 0 when there is no such
/// thread (any more).
uint64_t threadBirth(uint32_t thread) noexcept;
/// May two births be one thread's? A birth that the host did not tell fits any other.
bool sameBirth(uint64_t a, uint64_t b) noexcept;

} // namespace brisolt

// Small numbers that stand for functions where a record has no room for an address.
#pragma once

#include <cstdint>

namespace brisolt::functionWords {

using Function = void (*)();

/// The word of a function: always the same one, 0 for null (and when there is no memory for a new one).
uint32_t wordOf(Function function) noexcept;
/// The function behind a word, null for a word that was never issued.
Function functionOf(uint32_t word) noexcept;

} // namespace brisolt::functionWords

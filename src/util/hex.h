// Bytes in hexadecimal notation.
#pragma once

#include <cstdint>

namespace brisolt::hex {

/// One or two lower-case digits, no leading zero, no terminator; returns the end.
char* put(char* out, uint8_t value) noexcept;
/// Exactly two lower-case digits and a terminator.
void putPadded(char* out, uint8_t value) noexcept;
/// The value of the first one or two digits, upper-case letters only; any other character is a 0 in its
/// place.
uint8_t parse(const char* text) noexcept;

} // namespace brisolt::hex

// Copies between strings and byte arrays.
#pragma once

#include <cstdint>
#include <span>

namespace brisolt::byteStrings {

/// The bytes from the last to the first; `out` is as long, and may be the bytes themselves.
void reverse(std::span<const uint8_t> bytes, uint8_t* out) noexcept;
/// Copies up to and including the first zero byte, else all and a zero byte behind them. How many bytes stand
/// before the zero.
int32_t copyAsString(std::span<const uint8_t> bytes, char* out) noexcept;
/// A blank and the shortest hex for each byte, terminated.
void hexString(std::span<const uint8_t> bytes, char* out) noexcept;

} // namespace brisolt::byteStrings

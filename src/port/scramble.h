// Link scrambling: a reversible transform of each byte by a one-byte key.
#pragma once

#include <bit>
#include <cstdint>
#include <numeric>
#include <string_view>

#include "port/record.h"

namespace brisolt {

/// The key that both ends make of a code: the sum of its bytes, or the default key when that is 0.
constexpr uint8_t scrambleKeyOf(std::string_view code) noexcept {
    auto sum = std::accumulate(code.begin(), code.end(), uint8_t{0}, [](uint8_t key, char byte) {
        return static_cast<uint8_t>(key + static_cast<uint8_t>(byte));
    });
    return sum == 0 ? defaultScrambleKey : sum;
}

/// How far a key turns a byte: 1 to 7 bits.
constexpr int32_t scrambleTurn(uint8_t key) noexcept {
    int32_t turn = key & 7;
    return turn == 0 ? 4 : turn;
}
constexpr uint8_t scrambleByte(uint8_t key, uint8_t byte) noexcept {
    return std::rotr(static_cast<uint8_t>(byte ^ key), scrambleTurn(key));
}
constexpr uint8_t unscrambleByte(uint8_t key, uint8_t byte) noexcept {
    return static_cast<uint8_t>(std::rotl(byte, scrambleTurn(key)) ^ key);
}

} // namespace brisolt

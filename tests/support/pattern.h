// What is sent where every byte lost, doubled or out of place must show.
#pragma once

#include <cstdint>
#include <string>

namespace brisolt::test {

/// Bytes that differ from their neighbours and repeat late.
inline std::string pattern(std::size_t count, uint32_t seed = 1) {
    std::string bytes(count, '\0');
    for (char& byte : bytes) {
        seed = seed * 1664525U + 1013904223U;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

} // namespace brisolt::test

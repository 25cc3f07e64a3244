// Framing as people write it: "8N1", "7E1", "5o1.5".
#pragma once

#include <cstdint>
#include <string>

namespace brisolt {

/// In the codes of ComOpen.
struct Framing {
    int32_t dataBits = 8;
    int32_t parity = 1;
    int32_t stopBits = 1;
};

/// 0; -33 bad parity, -34 bad data bits, -35 bad stop bits; the calling thread's error text then says what is
/// possible. Null is "8N1".
int32_t readFraming(const char* text, Framing& framing);
std::string framingText(const Framing& framing);

} // namespace brisolt

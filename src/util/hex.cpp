#include "util/hex.h"

namespace brisolt::hex {
namespace {

constexpr char digits[] = "0123456789abcdef";

int32_t digitValue(char digit) noexcept {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return 0;
}

} // namespace

char* put(char* out, uint8_t value) noexcept {
    if (value >= 16)
        *out++ = digits[value >> 4];
    *out++ = digits[value & 15];
    return out;
}

void putPadded(char* out, uint8_t value) noexcept {
    out[0] = digits[value >> 4];
    out[1] = digits[value & 15];
    out[2] = '\0';
}

uint8_t parse(const char* text) noexcept {
    if (text[0] == '\0' || text[1] == '\0')
        return static_cast<uint8_t>(digitValue(text[0]));
    return static_cast<uint8_t>(digitValue(text[0]) * 16 + digitValue(text[1]));
}

} // namespace brisolt::hex

#include "util/byte_strings.h"

#include <algorithm>
#include <cstring>

#include "util/hex.h"

namespace brisolt::byteStrings {

void reverse(std::span<const uint8_t> bytes, uint8_t* out) noexcept {
    if (bytes.data() == out)
        std::reverse(out, out + bytes.size());
    else
        std::reverse_copy(bytes.begin(), bytes.end(), out);
}

int32_t copyAsString(std::span<const uint8_t> bytes, char* out) noexcept {
    auto length = static_cast<std::size_t>(std::find(bytes.begin(), bytes.end(), 0) - bytes.begin());
    if (length > 0)
        std::memmove(out, bytes.data(), length);
    out[length] = '\0';
    return static_cast<int32_t>(length);
}

void hexString(std::span<const uint8_t> bytes, char* out) noexcept {
    for (uint8_t byte : bytes) {
        *out++ = ' ';
        out = hex::put(out, byte);
    }
    *out = '\0';
}

} // namespace brisolt::byteStrings

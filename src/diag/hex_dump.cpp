#include "diag/hex_dump.h"

#include <algorithm>

#include "util/hex.h"

namespace brisolt {
namespace {

constexpr int32_t widestColumn = 70;
constexpr int32_t characterWeight = 2;
constexpr int32_t hexWeight = 4; ///< whatever the item's real length

bool shownAsCharacter(uint8_t byte) noexcept {
    return byte >= 31 && byte <= 126;
}

} // namespace

std::string hexDump(const HexDump& form, std::span<const uint8_t> bytes) {
    std::string text;
    int32_t column = 0;
    for (uint8_t byte : bytes.first(std::min(form.limit, bytes.size()))) {
        if (column > widestColumn) {
            text += "\r\n";
            column = 0;
        }
        if (form.characters && shownAsCharacter(byte)) {
            text += {static_cast<char>(byte), ' '};
            column += characterWeight;
        } else {
            char digits[2];
            text.append("<").append(digits, hex::put(digits, byte)).append(form.afterHex);
            column += hexWeight;
        }
    }
    return text;
}

} // namespace brisolt

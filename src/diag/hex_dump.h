// Bytes as text for a log entry. The logs differ in how many bytes they take and how they show one.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace brisolt {

struct HexDump {
    std::size_t limit;    ///< bytes shown at most
    const char* afterHex; ///< closes the hex form of a byte
    bool characters;      ///< printable bytes stand for themselves
    bool cut;             ///< the entry is no longer than a formatted one
};
inline constexpr HexDump debugDump{500, "> ", false, false};
inline constexpr HexDump verifyDump{750, "> ", true, true};
inline constexpr HexDump protocolDump{1600, ">", false, true};

std::string hexDump(const HexDump& form, std::span<const uint8_t> bytes);

} // namespace brisolt

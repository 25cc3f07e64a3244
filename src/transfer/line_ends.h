// How a byte of a text file goes out.
#pragma once

#include <cstdint>

#include "port/record.h"

namespace brisolt {

inline constexpr uint8_t carriageReturn = 13;
inline constexpr uint8_t lineFeed = 10;

struct Shaped {
    bool dropped = false;     ///< the byte is not sent
    bool afterReturn = false; ///< a carriage return is sent before it
};

/// `previous`: the byte before it in the file, 0 before the first.
inline Shaped shaped(const PortRecord& settings, int32_t byte, int32_t previous) noexcept {
    if (byte != lineFeed)
        return {};
    if (settings.stripLF != 0)
        return {.dropped = true};
    return {.afterReturn = settings.addCR != 0 && previous != carriageReturn};
}

} // namespace brisolt

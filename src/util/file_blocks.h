// Files read block by block, as copying and comparing do.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "platform/file.h"

namespace brisolt {

inline constexpr int32_t blockSize = 1000;
using Block = std::array<uint8_t, blockSize>;

/// Fills the room unless the file ends first. Bytes read, below 0 when a read failed.
inline int32_t readFull(file::File& file, std::span<uint8_t> room) noexcept {
    std::size_t filled = 0;
    while (filled < room.size()) {
        int32_t got = file.read(room.data() + filled, static_cast<int32_t>(room.size() - filled));
        if (got < 0)
            return got;
        if (got == 0)
            break;
        filled += static_cast<std::size_t>(got);
    }
    return static_cast<int32_t>(filled);
}

} // namespace brisolt

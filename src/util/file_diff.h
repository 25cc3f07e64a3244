// Two files compared block by block.
#pragma once

#include <cstdint>

#include "util/file_blocks.h"

namespace brisolt {

inline constexpr int32_t noFirstFile = -1;
inline constexpr int32_t noSecondFile = -2;
inline constexpr int32_t readFailure = -3;
inline constexpr int32_t lengthsDiffer = -4;

/// Two files open side by side. Others may read and write them meanwhile.
struct FilePair {
    FilePair(const char* firstName, const char* secondName) noexcept;
    /// The next block of each; the counts tell how much of it, below 0 when its read failed.
    void read() noexcept {
        firstCount = readFull(first, firstBlock);
        secondCount = readFull(second, secondBlock);
    }

    file::File first, second;
    int32_t refusal; ///< 0, noFirstFile or noSecondFile
    Block firstBlock, secondBlock;
    int32_t firstCount = 0, secondCount = 0;
};

/// 0 the files are equal; above 0 the first byte that differs, from 1; below 0 as above.
int32_t firstDifference(const char* firstName, const char* secondName) noexcept;

} // namespace brisolt

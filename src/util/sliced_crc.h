// CRCs many bytes a step. All of them are linear: what a byte has become some bytes later does not depend on
// the bytes around it, so a table for every distance, and a whole block is the sum of its bytes' entries. The
// tables are made by the compiler.
//
// A recurrence brings
//   Word               its register
//   advance(r)         the register one byte later, when that byte is 0
//   enter(b)           what a byte adds to the register when it enters
//   lead(r)            how the register enters a block: through its first two bytes, and the rest as it is
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

namespace brisolt::checks {

template <class Word> using ByteTable = std::array<Word, 256>;

template <class Word> struct Lead {
    uint8_t first, second; ///< added to the bytes of the block
    Word rest;             ///< added to its sum
};

inline constexpr std::size_t blockSize = 16;

/// tables[k][b]: what the byte b adds, k bytes after it entered.
template <class Recurrence> constexpr auto makeTables() {
    std::array<ByteTable<typename Recurrence::Word>, blockSize> tables{};
    for (std::size_t b = 0; b < 256; ++b) {
        tables[0][b] = Recurrence::enter(static_cast<uint8_t>(b));
        for (std::size_t k = 1; k < blockSize; ++k)
            tables[k][b] = Recurrence::advance(tables[k - 1][b]);
    }
    return tables;
}
template <class Recurrence> inline constexpr auto tablesOf = makeTables<Recurrence>();

template <class Recurrence, std::size_t... i>
auto addBlock(typename Recurrence::Word r, const uint8_t* bytes, std::index_sequence<i...>) noexcept {
    constexpr auto& tables = tablesOf<Recurrence>;
    constexpr std::size_t last = blockSize - 1;
    auto lead = Recurrence::lead(r);
    auto first = tables[last][bytes[0] ^ lead.first] ^ tables[last - 1][bytes[1] ^ lead.second];
    auto others = (tables[last - 2 - i][bytes[2 + i]] ^ ...);
    return static_cast<typename Recurrence::Word>(lead.rest ^ first ^ others);
}

/// The register after the bytes, that was r before them.
template <class Recurrence> auto add(typename Recurrence::Word r, std::span<const uint8_t> bytes) noexcept {
    for (; bytes.size() >= blockSize; bytes = bytes.subspan(blockSize))
        r = addBlock<Recurrence>(r, bytes.data(), std::make_index_sequence<blockSize - 2>());
    for (uint8_t byte : bytes)
        r = static_cast<typename Recurrence::Word>(Recurrence::advance(r) ^ tablesOf<Recurrence>[0][byte]);
    return r;
}

} // namespace brisolt::checks

#include "util/checks.h"

#include "util/sliced_crc.h"

namespace brisolt::checks {
namespace {

/// The table of a polynomial that takes bytes from their highest bit on.
constexpr ByteTable<uint16_t> tableOf(uint16_t polynomial) {
    ByteTable<uint16_t> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t entry = i << 8;
        for (int bit = 0; bit < 8; ++bit)
            entry = entry << 1 ^ ((entry & 0x8000) != 0 ? polynomial : 0U);
        table[i] = static_cast<uint16_t>(entry);
    }
    return table;
}

/// The table of a polynomial that takes bytes from their lowest bit on.
constexpr ByteTable<uint32_t> reflectedTableOf(uint32_t polynomial) {
    ByteTable<uint32_t> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
            table[i] = table[i] >> 1 ^ ((table[i] & 1) != 0 ? polynomial : 0U);
    }
    return table;
}

/// A register that moves up a byte and adds the table's entry for its second byte. A byte counts two steps
/// after it came in at the bottom; here it enters as what it will be then, so nothing is left to close.
template <class WordType, ByteTable<WordType> table> struct ShiftingUp {
    using Word = WordType;
    static constexpr uint8_t secondByte(Word r) { return static_cast<uint8_t>(r >> 8); }
    static constexpr Word advance(Word r) { return static_cast<Word>(r << 8 ^ table[secondByte(r)]); }
    static constexpr Word enter(uint8_t byte) { return advance(advance(byte)); }
    /// What stands above the second byte is gone after two steps.
    static constexpr Lead<Word> lead(Word r) { return {secondByte(r), static_cast<uint8_t>(r), 0}; }
};
using Ccitt = ShiftingUp<uint16_t, tableOf(0x1021)>;
using Crc16 = ShiftingUp<uint16_t, tableOf(0x8005)>;
/// Of a table that is made for the other direction, which makes it a check of its own.
using Check32 = ShiftingUp<uint32_t, reflectedTableOf(0xEDB88320)>;

/// A register that stays in place: its upper byte is turned into a word that is added to it, and the byte
/// comes in on top. Here that word is added as the byte comes in; the last byte of all does without.
struct Check16 {
    using Word = uint16_t;
    static constexpr Word advance(Word r) {
        uint32_t upper = r >> 8;
        uint32_t turned = (upper * 0x101) >> 1;
        if ((upper & 1) != 0)
            turned ^= 0x8000 ^ 0x3C00;
        return static_cast<Word>(r ^ turned);
    }
    static constexpr Word enter(uint8_t byte) { return advance(static_cast<Word>(byte << 8)); }
    static constexpr Lead<Word> lead(Word r) {
        return {static_cast<uint8_t>(r >> 8), 0, static_cast<Word>(r & 0xFF)};
    }
};
constexpr uint16_t check16End = 0x00D7;

} // namespace

uint16_t crcCcitt(Bytes bytes) noexcept {
    return add<Ccitt>(0, bytes);
}

uint16_t crc16(uint16_t start, Bytes bytes) noexcept {
    return add<Crc16>(start, bytes);
}

uint32_t check32(Bytes bytes) noexcept {
    return add<Check32>(0, bytes);
}

uint16_t check16(Bytes bytes) noexcept {
    if (bytes.empty())
        return check16End;
    uint16_t r = add<Check16>(0, bytes.first(bytes.size() - 1));
    return static_cast<uint16_t>(r ^ bytes.back() << 8 ^ check16End);
}

uint32_t sum(Bytes bytes) noexcept {
    uint32_t total = 0;
    for (uint8_t byte : bytes)
        total += byte;
    return total;
}

uint8_t exclusiveOr(Bytes bytes) noexcept {
    uint8_t total = 0;
    for (uint8_t byte : bytes)
        total ^= byte;
    return total;
}

void SignedCheck32::add(Bytes bytes) noexcept {
    for (uint8_t byte : bytes)
        register_ = Check32::advance(register_) ^ static_cast<uint32_t>(static_cast<int8_t>(byte));
}

uint32_t SignedCheck32::value() const noexcept {
    return Check32::advance(Check32::advance(register_));
}

} // namespace brisolt::checks

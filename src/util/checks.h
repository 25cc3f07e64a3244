// Block checks over bytes: CRCs, additive and exclusive-or sums.
#pragma once

#include <cstdint>
#include <span>

namespace brisolt::checks {

using Bytes = std::span<const uint8_t>;

/// Polynomial 0x1021 from 0, nothing reflected.
uint16_t crcCcitt(Bytes bytes) noexcept;
/// Polynomial 0x8005 from any start, nothing reflected.
uint16_t crc16(uint16_t start, Bytes bytes) noexcept;
/// The library's own 32-bit check. It is not the common CRC-32.
uint32_t check32(Bytes bytes) noexcept;
/// The library's own 16-bit check.
uint16_t check16(Bytes bytes) noexcept;

uint32_t sum(Bytes bytes) noexcept;
uint8_t exclusiveOr(Bytes bytes) noexcept;

/// check32 of bytes that come in pieces and enter with their sign.
class SignedCheck32 {
public:
    void add(Bytes bytes) noexcept;
    uint32_t value() const noexcept;

private:
    uint32_t register_ = 0;
};

} // namespace brisolt::checks

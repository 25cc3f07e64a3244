// The S registers: 256 values of one byte. Those with a name here mean something to the simulator; the others
// are kept for the program that sets them.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace simulated {

enum SRegister : uint8_t {
    ringsToAnswer = 0,
    ringCount = 1,
    escapeCharacter = 2, ///< above 127: no escape
    endCharacter = 3,
    lineFeedCharacter = 4,
    backspaceCharacter = 5,
    blindDialWait = 6,    ///< seconds before dialling without looking for a dial tone
    carrierWait = 7,      ///< seconds
    commaPause = 8,       ///< seconds
    carrierLossTime = 10, ///< tenths of a second without carrier before it counts as lost
    toneTime = 11,        ///< milliseconds
    guardTime = 12,       ///< fiftieths of a second; 0: none
    dtrTime = 25,         ///< hundredths of a second that DTR must have been down
    negotiation = 36,
    compression = 46,
    negotiationFeatures = 48
};

class SRegisters {
public:
    /// As they leave the factory.
    SRegisters();

    uint8_t operator[](SRegister number) const { return values_[number]; }
    uint8_t& operator[](SRegister number) { return values_[number]; }
    char character(SRegister number) const { return static_cast<char>(values_[number]); }
    /// By the number a program gives; false when there is no such register or it holds no such value.
    bool set(int number, int value);
    /// Three digits, as a program is told; empty when there is no such register.
    std::string show(int number) const;

private:
    std::array<uint8_t, 256> values_{};
};

} // namespace simulated

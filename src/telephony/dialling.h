// Dialling through the service: the line, the call parameters, the request, the wait for the connection.
#pragma once

#include <cstddef>

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

inline constexpr std::size_t longestNumber = 74;

/// What is given to the service: the mode letter and the number behind it.
struct DialString {
    char text[1 + longestNumber + 1] = {};
    bool empty() const noexcept { return text[0] == '\0'; }
    const char* number() const noexcept { return text + 1; }
};
/// Empty for a number that is missing or too long to be dialled in full. Any mode but "P" is tone.
DialString dialString(const char* phoneNumber, const char* dialMode) noexcept;

/// Places the call and waits until it is connected or has failed; then the line is closed and the entry has
/// the cause.
void dial(const Use& use, const DialString& toDial);

} // namespace brisolt::telephony

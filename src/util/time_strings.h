// The local date and time as the logs and the time functions show them.
#pragma once

#include <cstdint>

#include "platform/clock.h"

namespace brisolt {

inline constexpr int32_t timeStringSize = 9; ///< a date or a time, terminator included

struct TimeStrings {
    char date[timeStringSize]; ///< 11/19/26
    char time[timeStringSize]; ///< 04:51:58
    uint16_t millisecond;
};
/// All of one moment: a stamp never shows the date of one day with the time of the next.
TimeStrings timeStrings(const clock::LocalTime& moment) noexcept;
inline TimeStrings timeStringsNow() noexcept {
    return timeStrings(clock::localTime());
}

} // namespace brisolt

// The local date and time as the logs and the time functions show them.
#pragma once

#include <cstdint>
#include <string>

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

/// <02 01 1980 3 02 03 55 00>: day, month, year, weekday from Sunday as 0, hour, minute, second, 00. An
/// offset moves the hour within its day, which is then written as short as it is.
std::string bracketedStamp(const clock::LocalTime& moment, int32_t hourOffset);
/// _1980_01_02_02_03_55, for names of files.
std::string underscoreStamp(const clock::LocalTime& moment);

} // namespace brisolt

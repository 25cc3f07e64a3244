#include "util/time_strings.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace brisolt {
namespace {

void putTwoDigits(char* out, int32_t value) noexcept {
    out[0] = static_cast<char>('0' + value / 10 % 10);
    out[1] = static_cast<char>('0' + value % 10);
}

void put(char (&out)[timeStringSize], int32_t first, int32_t second, int32_t third, char separator) noexcept {
    putTwoDigits(out, first);
    putTwoDigits(out + 3, second);
    putTwoDigits(out + 6, third);
    out[2] = out[5] = separator;
    out[8] = '\0';
}

uint32_t weekday(const clock::LocalTime& moment) noexcept {
    using namespace std::chrono;
    year_month_day date{year(moment.year), month(static_cast<uint32_t>(moment.month)),
                        day(static_cast<uint32_t>(moment.day))};
    return std::chrono::weekday(sys_days(date)).c_encoding();
}

std::string hourText(int32_t hour, int32_t offset) {
    if (offset != 0)
        return std::to_string(std::clamp<int64_t>(int64_t{hour} + offset, 0, 23));
    return {static_cast<char>('0' + hour / 10), static_cast<char>('0' + hour % 10)};
}

} // namespace

TimeStrings timeStrings(const clock::LocalTime& moment) noexcept {
    TimeStrings strings;
    put(strings.date, moment.month, moment.day, moment.year % 100, '/');
    put(strings.time, moment.hour, moment.minute, moment.second, ':');
    strings.millisecond = static_cast<uint16_t>(moment.millisecond);
    return strings;
}

std::string bracketedStamp(const clock::LocalTime& moment, int32_t hourOffset) {
    char text[64];
    std::snprintf(text, sizeof text, "<%02d %02d %04d %u %s %02d %02d 00>", moment.day, moment.month,
                  moment.year, weekday(moment), hourText(moment.hour, hourOffset).c_str(), moment.minute,
                  moment.second);
    return text;
}

std::string underscoreStamp(const clock::LocalTime& moment) {
    char text[64];
    std::snprintf(text, sizeof text, "_%04d_%02d_%02d_%02d_%02d_%02d", moment.year, moment.month, moment.day,
                  moment.hour, moment.minute, moment.second);
    return text;
}

} // namespace brisolt

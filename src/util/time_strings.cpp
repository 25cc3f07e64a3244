#include "util/time_strings.h"

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

} // namespace

TimeStrings timeStrings(const clock::LocalTime& moment) noexcept {
    TimeStrings strings;
    put(strings.date, moment.month, moment.day, moment.year % 100, '/');
    put(strings.time, moment.hour, moment.minute, moment.second, ':');
    strings.millisecond = static_cast<uint16_t>(moment.millisecond);
    return strings;
}

} // namespace brisolt

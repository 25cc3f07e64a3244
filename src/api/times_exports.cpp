// Exported: dates, times, dated file names and the tick counter.
#include <cstring>
#include <string>

#include "api/border.h"
#include "api/export.h"
#include "brisolt/times.h"
#include "platform/clock.h"
#include "util/dated_names.h"
#include "util/time_strings.h"

using namespace brisolt;

namespace {

int32_t put(const std::string& text, char* buffer) noexcept {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return 1;
}

int32_t putTimeString(const char (&string)[timeStringSize], char* buffer) noexcept {
    if (buffer == nullptr)
        return -1;
    std::memcpy(buffer, string, timeStringSize);
    return 1;
}

} // namespace

BRISOLT_EXPORT int32_t ComGetTime(char* buffer) {
    return putTimeString(timeStringsNow().time, buffer);
}
BRISOLT_EXPORT int32_t ComGetSystemTime(char* buffer) {
    return ComGetTime(buffer);
}
BRISOLT_EXPORT int32_t ComGetDate(char* buffer) {
    return putTimeString(timeStringsNow().date, buffer);
}
BRISOLT_EXPORT int32_t ComGetSystemDate(char* buffer) {
    return ComGetDate(buffer);
}

BRISOLT_EXPORT int32_t ComGetTimeDateStr(char* buffer, int32_t hourOffset) {
    return guarded(-1, [=] {
        return buffer == nullptr ? -1 : put(bracketedStamp(clock::localTime(), hourOffset), buffer);
    });
}
BRISOLT_EXPORT int32_t ComGetTimeDateStrFormat2(char* buffer) {
    return guarded(-1,
                   [=] { return buffer == nullptr ? -1 : put(underscoreStamp(clock::localTime()), buffer); });
}

BRISOLT_EXPORT int32_t ComCreateDatedFilename(const char* fileName, char* output) {
    if (fileName == nullptr || output == nullptr)
        return -1;
    return guarded(-1, [=] {
        DatedName dated = datedName(fileName, underscoreStamp(clock::localTime()));
        put(dated.text, output);
        return dated.complete ? 1 : 0;
    });
}
BRISOLT_EXPORT int32_t ComCreateDatedFilename2(const char* fileName, char* output) {
    if (fileName == nullptr || output == nullptr)
        return -1;
    return guarded(-1, [=] {
        std::string dated = std::string(fileName) + ' ' + underscoreStamp(clock::localTime());
        put(dated, output);
        return 0;
    });
}

BRISOLT_EXPORT uint32_t ComGetCurrentTime(void) {
    return clock::ticks();
}
BRISOLT_EXPORT uint32_t _curr_time(void) {
    return clock::ticks();
}
BRISOLT_EXPORT int32_t ComCompareTime(uint32_t start, uint32_t limit) {
    return clock::ticks() - start > limit ? 1 : 0;
}

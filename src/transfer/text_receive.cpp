#include "transfer/text_receive.h"

#include <algorithm>

#include "stream/reading.h"
#include "stream/stream_settings.h"
#include "stream/timed_reads.h"
#include "transfer/progress.h"

namespace brisolt {

namespace {

/// How a receive in one call ends.
constexpr int32_t stoppedByUser = 1, endCharCame = 2, lineQuiet = 3, broken = -1;

clock::Deadline quietAfter(int32_t seconds) noexcept {
    int64_t milliseconds = int64_t{seconds} * 1000;
    return clock::Deadline::in(static_cast<uint32_t>(std::min<int64_t>(milliseconds, UINT32_MAX - 1)));
}

int32_t receiveInto(Port& port, TextTarget& target, int32_t escape, int32_t endChar, int32_t seconds) {
    auto until = quietAfter(seconds);
    for (;;) {
        uint32_t seen = port.events.count();
        bool escaped = checkEscape(port, escape) == 1;
        if (escaped || cancelled(port) || port.ending())
            return stoppedByUser;
        int32_t byte = readByte(port);
        if (byte < 0) {
            if (until.passed())
                return lineQuiet;
            sleepForBytes(port, seen, true, true, until);
            continue;
        }
        until = quietAfter(seconds);
        if (byte == endChar)
            return endCharCame;
        auto character = static_cast<uint8_t>(byte);
        if (!target.write(&character, 1))
            return broken;
        progress::addBytes(port, 1);
    }
}

bool isText(char character) noexcept {
    return (character >= ' ' && character <= '~') || character == '\n' || character == '\r';
}

} // namespace

int32_t receiveFile(Port& port, const char* name, int32_t escape, int32_t endChar, int32_t seconds) {
    TextTarget target(name);
    if (!target)
        return broken;
    countTransfer(port);
    int32_t result = receiveInto(port, target, escape, endChar, seconds);
    bool kept = target.close();
    if (result > 0)
        flushReceived(port, port.record->flushDelay);
    return kept ? result : broken;
}

int32_t readText(Port& port, char* buffer, int32_t count) {
    int32_t got = std::clamp(read(port, buffer, count), 0, count); // a driver function may say anything
    char* end = std::remove_if(buffer, buffer + got, [](char character) { return !isText(character); });
    *end = 0;
    return static_cast<int32_t>(end - buffer);
}

} // namespace brisolt

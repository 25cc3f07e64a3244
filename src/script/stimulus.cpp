#include "script/stimulus.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "port/port_table.h"
#include "port/waits.h"
#include "script/stimulus_lists.h"
#include "script/stimulus_match.h"
#include "stream/reading.h"
#include "stream/timed_reads.h"
#include "stream/writing.h"

namespace brisolt {

namespace {

constexpr std::size_t batchSize = 100;
constexpr int32_t longestText = sizeof(PortWorkArea::matchBuf) - 1; ///< without its terminator

/// How a call takes its bytes off the port.
enum class Taking {
    countedFirst, ///< asks how many there are; as ComGetc it cannot tell 255 from no byte, and drops it
    blindly,      ///< reads, and gets every value
};

/// What is different about the calls; everything else is `await`.
struct Rules {
    Taking taking;
    int32_t reads;     ///< in one go, before time, escape and close are looked at again
    std::size_t bytes; ///< of one read. The strings are looked for once after each
    bool dropsNul;     ///< else it ends the text that is searched, for the rest of the call
    bool emptiesFirst; ///< so the strings can be looked for before anything has come
    bool escapeFirst;  ///< the escape and a cancel are looked for before bytes, else behind them
    int32_t timeOver, full, closed;

    bool drops255() const noexcept { return taking == Taking::countedFirst; }
    /// Of the collected text: a read in full must still fit.
    int32_t longest() const noexcept { return longestText + 1 - static_cast<int32_t>(bytes); }
};
constexpr Rules single{.taking = Taking::countedFirst,
                       .reads = 25,
                       .bytes = 1,
                       .dropsNul = true,
                       .emptiesFirst = true,
                       .escapeFirst = true,
                       .timeOver = 2,
                       .full = 3,
                       .closed = -1};
constexpr Rules singleFast{.taking = Taking::countedFirst,
                           .reads = 1,
                           .bytes = batchSize,
                           .dropsNul = true,
                           .emptiesFirst = true,
                           .escapeFirst = true,
                           .timeOver = 2,
                           .full = 3,
                           .closed = -1};
/// Keeps all that comes, for callers who look at the match buffer for bytes that are no text.
constexpr Rules array{.taking = Taking::blindly,
                      .reads = 1,
                      .bytes = 1,
                      .dropsNul = false,
                      .emptiesFirst = false,
                      .escapeFirst = false,
                      .timeOver = -2,
                      .full = -3,
                      .closed = -14};
constexpr Rules arrayFast{.taking = Taking::countedFirst,
                          .reads = 1,
                          .bytes = batchSize,
                          .dropsNul = true,
                          .emptiesFirst = false,
                          .escapeFirst = false,
                          .timeOver = -2,
                          .full = -3,
                          .closed = -14};
constexpr Rules lists{.taking = Taking::blindly,
                      .reads = 1,
                      .bytes = 1,
                      .dropsNul = true,
                      .emptiesFirst = true,
                      .escapeFirst = false,
                      .timeOver = -2,
                      .full = -3,
                      .closed = -1};

constexpr int32_t stopped = -4;
constexpr int32_t goOn = 0;

/// One call.
struct Call {
    Port& port;
    const Rules& rules;
    const StimulusList& list;
    int32_t maximum;
    StimulusMatch match;
};

uint32_t milliseconds(int32_t seconds, int64_t more) noexcept {
    return static_cast<uint32_t>(std::min<int64_t>(int64_t{std::max(seconds, 0)} * 1000 + more, UINT32_MAX));
}

/// Bytes that were said to be there, and those that came. Functions in the place of the port need not agree.
struct Taken {
    int32_t reported, got;
};

Taken take(Port& port, Taking taking, std::span<uint8_t> to) {
    auto count = static_cast<int32_t>(to.size());
    if (taking == Taking::countedFirst)
        count = std::clamp(bytesArrived(port), 0, count);
    int32_t got = 0;
    // A function of the caller's is asked for one at a time: it need not give more, whatever it is asked for.
    if (port.record->readFunc.load() != nullptr) {
        for (int32_t asked = 0; asked < count; ++asked)
            got += read(port, &to[static_cast<std::size_t>(got)], 1) == 1 ? 1 : 0;
    } else if (count > 0) {
        got = std::clamp(read(port, to.data(), count), 0, count);
    }
    return {.reported = taking == Taking::countedFirst ? count : got, .got = got};
}

/// The result of a call that has found the string, whatever becomes of the answer. That may be gone by now:
/// the list is the caller's.
int32_t answer(const Call& call, int32_t found) {
    if (const char* response = call.list.responses[found]; response != nullptr)
        writeString(call.port, response);
    return found + 1;
}

/// Looks at bytes that have come. The call's result, or goOn.
int32_t consider(Call& call, std::span<const uint8_t> bytes) {
    int32_t found = call.match.add(bytes);
    if (found >= 0)
        return answer(call, found);
    bool full = call.match.length() >= std::min(call.maximum, call.rules.longest());
    return full ? call.rules.full : goOn;
}

/// Takes what has come. `came` tells whether there was anything.
int32_t lookAtBytes(Call& call, bool& came) {
    uint8_t batch[batchSize];
    std::span<uint8_t> room(batch, call.rules.bytes);
    for (int32_t i = 0; i < call.rules.reads; ++i) {
        auto [reported, got] = take(call.port, call.rules.taking, room);
        came = came || got > 0;
        bool nothingNew = reported < 1 && !(call.rules.emptiesFirst && i == 0);
        if (nothingNew)
            return goOn;
        int32_t result = consider(call, room.first(static_cast<std::size_t>(got)));
        if (result != goOn || got < 1)
            return result;
    }
    return goOn;
}

/// A close shows as an escape, too, but is told as what it is.
int32_t lookAtEscape(Call& call) {
    bool ended = cancelled(call.port) || checkEscape(call.port, call.port.record->escapeChar) == 1;
    if (!ended)
        return goOn;
    return call.port.ending() ? call.rules.closed : stopped;
}

int32_t await(Port& port, const StimulusList& list, int32_t maximum, uint32_t patience, const Rules& rules) {
    auto until = clock::Deadline::in(patience);
    if (rules.emptiesFirst)
        clearMatch(port);
    std::span<const char* const> awaited(list.stimuli, static_cast<std::size_t>(list.count));
    Call call{port, rules, list, maximum, {port, awaited, {rules.dropsNul, rules.drops255()}}};
    for (;;) {
        uint32_t seen = port.events.count();
        if (port.ending())
            return rules.closed;
        int32_t result = rules.escapeFirst ? lookAtEscape(call) : goOn;
        if (result == goOn && until.passed())
            result = rules.timeOver;
        bool came = false;
        if (result == goOn)
            result = lookAtBytes(call, came);
        if (result == goOn && !rules.escapeFirst)
            result = lookAtEscape(call);
        if (result != goOn)
            return result;
        if (!came)
            sleepForBytes(port, seen, true, true, until);
    }
}

int32_t awaitOne(Port& port, const char* awaited, const char* response, int32_t maximum, uint32_t patience,
                 const Rules& rules) {
    return await(port, {&awaited, &response, 1}, maximum, patience, rules);
}

} // namespace

int32_t stimulus(Port& port, const char* awaited, const char* response, int32_t maximum, int32_t seconds) {
    clearCancel(port);
    return stimulusWithin(port, awaited, response, maximum, seconds);
}

int32_t stimulusWithin(Port& port, const char* awaited, const char* response, int32_t maximum,
                       int32_t seconds) {
    return awaitOne(port, awaited, response, maximum, milliseconds(seconds, 100), single);
}

int32_t stimulusFast(Port& port, const char* awaited, const char* response, int32_t maximum,
                     int32_t seconds) {
    clearCancel(port);
    return awaitOne(port, awaited, response, maximum, milliseconds(seconds, 1000), singleFast);
}

int32_t stimulusImmediate(Port& port, const char* awaited, const char* response, int32_t maximum) {
    char text[longestText + 1] = {};
    int32_t waiting = bytesWaiting(port);
    int32_t most = std::min({waiting, maximum, longestText});
    int32_t got = most < 1 ? 0 : std::clamp(read(port, text, most), 0, most);
    std::replace(text, text + got, '\0', ' ');
    {
        HeldLock lock(port);
        std::memcpy(port.workArea->matchBuf, text, sizeof text);
    }
    if (waiting < 1 || std::strstr(text, awaited) == nullptr)
        return 2;
    writeString(port, response);
    return 1;
}

int32_t stimulusArray(Port& port, const StimulusList& list, int32_t maximum, int32_t seconds) {
    return await(port, list, maximum, milliseconds(seconds, 100), array);
}

int32_t stimulusArrayFast(Port& port, const StimulusList& list, int32_t maximum, int32_t seconds) {
    port.workArea->matchLen = 0;
    clearCancel(port);
    return await(port, list, maximum, milliseconds(seconds, 100), arrayFast);
}

int32_t stimulusOfLists(Port& port, int32_t count, int32_t maximum, int32_t seconds) {
    ListedStimuli listed(port);
    if (!listed.has(count))
        return -10;
    clearCancel(port);
    StimulusList list{listed.stimuli, listed.responses, count};
    return await(port, list, maximum, milliseconds(seconds, 100), lists);
}

void copyMatched(Port& port, char* destination, int32_t count) noexcept {
    if (count < 1)
        return;
    HeldLock lock(port);
    auto size = static_cast<std::size_t>(count);
    const char* text = port.workArea->matchBuf;
    std::size_t length = strnlen(text, std::min(size, sizeof port.workArea->matchBuf));
    std::memcpy(destination, text, length);
    std::memset(destination + length, 0, size - length);
}

} // namespace brisolt

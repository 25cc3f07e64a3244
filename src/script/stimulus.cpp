#include "script/stimulus.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "port/port_table.h"
#include "port/reading.h"
#include "port/timed_reads.h"
#include "port/waits.h"
#include "port/writing.h"

namespace brisolt {

namespace {

/// How the calls differ.
struct Rules {
    int32_t look;     ///< bytes taken before time, escape and close are looked at again
    bool once;        ///< the stimuli are tested once for all of a look's bytes, not after each
    bool keepsNul;    ///< else dropped; kept, it ends the text that is searched
    bool keeps255;    ///< else dropped: ComGetc does not tell it from no byte
    bool withStatus;  ///< bytes are counted before they are taken
    bool testsAlways; ///< also when a look has brought nothing
    bool escapeFirst; ///< escape and cancel go before bytes that have come
    int32_t longest;  ///< the match buffer is never filled beyond
    int32_t timeOver, full, closed;
};
constexpr Rules single{25, false, false, false, true, false, true, 9999, 2, 3, -1};
constexpr Rules singleFast{100, true, false, false, true, true, true, 9900, 2, 3, -1};
constexpr Rules array{1, false, true, true, false, false, false, 9999, -2, -3, -14};
constexpr Rules arrayFast{100, true, false, false, true, false, false, 9900, -2, -3, -14};
constexpr Rules lists{25, false, false, true, false, true, false, 9999, -2, -3, -1};

constexpr int32_t stopped = -4;
constexpr int32_t goOn = 0;
constexpr int32_t listSize = 20;
constexpr std::size_t entrySize = sizeof(PortWorkArea::stimList[0]);

/// The collected bytes, and the search in them. A stimulus that was not there before can only end in the new
/// bytes, so each test looks at those and as many before them as the stimulus is long.
class Match {
public:
    Match(Port& port, const StimulusList& list, const Rules& rules)
        : work_(*port.workArea), keepsNul_(rules.keepsNul), keeps255_(rules.keeps255) {
        for (int32_t i = 0; i < list.count; ++i)
            stimuli_.emplace_back(list.stimuli[i]);
    }
    int32_t length() const noexcept { return length_; }

    void add(uint8_t byte) noexcept {
        bool kept = (byte != 0 || keepsNul_) && (byte != 255 || keeps255_);
        work_.matchBuf[length_] = kept ? static_cast<char>(byte) : '\0';
        if (kept)
            ++length_;
        if (byte != 0 && textEnd_ == length_ - 1 && kept)
            textEnd_ = length_;
        work_.matchBuf[length_] = 0;
        work_.matchLen = length_;
    }
    /// The first stimulus that has come, below 0: none.
    int32_t test() noexcept {
        auto tested = static_cast<std::size_t>(std::exchange(tested_, textEnd_));
        for (std::size_t i = 0; i < stimuli_.size(); ++i) {
            std::size_t before = std::min(tested, stimuli_[i].empty() ? 0 : stimuli_[i].size() - 1);
            std::size_t from = tested - before;
            std::string_view news(work_.matchBuf + from, static_cast<std::size_t>(textEnd_) - from);
            if (news.find(stimuli_[i]) != std::string_view::npos)
                return static_cast<int32_t>(i);
        }
        return -1;
    }

private:
    PortWorkArea& work_;
    bool keepsNul_, keeps255_;
    std::vector<std::string_view> stimuli_;
    int32_t length_ = 0;
    int32_t textEnd_ = 0; ///< a NUL ends the text
    int32_t tested_ = 0;
};

uint32_t milliseconds(int32_t seconds, uint32_t more) noexcept {
    return static_cast<uint32_t>(std::clamp<int64_t>(int64_t{seconds} * 1000, 0, UINT32_MAX / 2)) + more;
}

bool escaped(Port& port) {
    return cancelled(port) || checkEscape(port, port.record->escapeChar) != 0;
}

int32_t test(Port& port, Match& match, const StimulusList& list, int32_t maximum, const Rules& rules) {
    int32_t found = match.test();
    if (found >= 0) {
        const char* response = list.responses[found];
        if (response != nullptr && *response != 0)
            writeString(port, response);
        return found + 1;
    }
    return match.length() >= std::min(maximum, rules.longest) ? rules.full : goOn;
}

/// Takes what has come, up to a look's bytes. `came` tells whether there was any.
int32_t look(Port& port, Match& match, const StimulusList& list, int32_t maximum, const Rules& rules,
             bool& came) {
    came = false;
    for (int32_t i = 0; i < rules.look; ++i) {
        uint8_t byte = 0;
        bool waiting = !rules.withStatus || bytesArrived(port) > 0;
        if (!waiting || read(port, &byte, 1) != 1)
            break;
        came = true;
        match.add(byte);
        if (rules.once)
            continue;
        if (int32_t result = test(port, match, list, maximum, rules); result != goOn)
            return result;
    }
    bool tests = rules.testsAlways || (rules.once && came);
    return tests ? test(port, match, list, maximum, rules) : goOn;
}

int32_t await(Port& port, const StimulusList& list, int32_t maximum, uint32_t patience, const Rules& rules) {
    auto until = clock::Deadline::in(patience);
    Match match(port, list, rules);
    for (;;) {
        uint32_t seen = port.events.count();
        if (port.ending())
            return rules.closed;
        if (rules.escapeFirst && escaped(port))
            return port.ending() ? rules.closed : stopped;
        if (until.passed())
            return rules.timeOver;
        bool came = false;
        int32_t result = look(port, match, list, maximum, rules, came);
        if (result != goOn)
            return port.ending() && result != rules.full ? rules.closed : result;
        if (!rules.escapeFirst && escaped(port))
            return port.ending() ? rules.closed : stopped;
        if (!came)
            sleepForBytes(port, seen, true, true, until);
    }
}

void clearMatch(Port& port) noexcept {
    PortWorkArea& work = *port.workArea;
    std::memset(work.matchBuf, 0, sizeof work.matchBuf);
    work.matchLen = 0;
}

void emptyMatch(Port& port) noexcept {
    port.workArea->matchBuf[0] = 0;
    port.workArea->matchLen = 0;
}

int32_t awaitOne(Port& port, const char* awaited, const char* response, int32_t maximum, uint32_t patience,
                 const Rules& rules) {
    emptyMatch(port);
    return await(port, {&awaited, &response, 1}, maximum, patience, rules);
}

/// A bounded copy that is always terminated.
void setEntry(char* entry, const char* string, int32_t length) noexcept {
    std::memset(entry, 0, entrySize);
    auto most = static_cast<std::size_t>(std::clamp<int32_t>(length, 0, entrySize - 1));
    std::memcpy(entry, string, strnlen(string, most));
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
    std::memset(port.workArea->matchBuf, 0, sizeof port.workArea->matchBuf);
    int32_t most = std::min(std::min(bytesWaiting(port), maximum), single.longest);
    if (most < 1)
        return 2;
    char* text = port.workArea->matchBuf;
    int32_t got = std::clamp(read(port, text, most), 0, most); // a driver function may say anything
    std::replace(text, text + got, '\0', ' ');
    if (std::strstr(text, awaited) == nullptr)
        return 2;
    writeString(port, response);
    return 1;
}

int32_t stimulusArray(Port& port, const StimulusList& list, int32_t maximum, int32_t seconds) {
    clearCancel(port);
    return await(port, list, maximum, milliseconds(seconds, 100), array);
}

int32_t stimulusArrayFast(Port& port, const StimulusList& list, int32_t maximum, int32_t seconds) {
    port.workArea->matchLen = 0;
    clearCancel(port);
    return await(port, list, maximum, milliseconds(seconds, 100), arrayFast);
}

int32_t stimulusOfLists(Port& port, int32_t count, int32_t maximum, int32_t seconds) {
    // A copy: whoever changes the lists meanwhile changes those of the next call.
    char stimuli[listSize][entrySize], responses[listSize][entrySize];
    {
        HeldLock lock(port);
        std::memcpy(stimuli, port.workArea->stimList, sizeof stimuli);
        std::memcpy(responses, port.workArea->respList, sizeof responses);
    }
    const char* awaited[listSize];
    const char* answers[listSize];
    for (int32_t i = 0; i < count; ++i) {
        if (i == listSize || stimuli[i][0] == 0)
            return -10;
        awaited[i] = stimuli[i];
        answers[i] = responses[i];
    }
    clearMatch(port);
    clearCancel(port);
    return await(port, {awaited, answers, count}, maximum, milliseconds(seconds, 100), lists);
}

int32_t addStimulus(Port& port, const char* string, int32_t length) {
    HeldLock lock(port);
    PortWorkArea& work = *port.workArea;
    if (*string == 0 || length < 1 || work.stimCount >= listSize)
        return -1;
    setEntry(work.stimList[work.stimCount++], string, length);
    return 1;
}

int32_t addResponse(Port& port, const char* string, int32_t length) {
    HeldLock lock(port);
    PortWorkArea& work = *port.workArea;
    if (work.respCount >= listSize)
        return -1;
    setEntry(work.respList[work.respCount++], string, length);
    return 1;
}

void freeStimuli(Port& port) noexcept {
    HeldLock lock(port);
    std::memset(port.workArea->stimList, 0, sizeof port.workArea->stimList);
    port.workArea->stimCount = 0;
}

void freeResponses(Port& port) noexcept {
    HeldLock lock(port);
    std::memset(port.workArea->respList, 0, sizeof port.workArea->respList);
    port.workArea->respCount = 0;
}

void copyMatched(Port& port, char* destination, int32_t count) noexcept {
    if (count < 1)
        return;
    auto size = static_cast<std::size_t>(count);
    const char* text = port.workArea->matchBuf;
    std::size_t length = strnlen(text, std::min(size, sizeof port.workArea->matchBuf));
    std::memcpy(destination, text, length);
    std::memset(destination + length, 0, size - length);
}

} // namespace brisolt

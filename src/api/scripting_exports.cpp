// Peeks, and stimulus and response.
#include <algorithm>

#include "api/border.h"
#include "brisolt/scripting.h"
#include "port/waits.h"
#include "script/peek.h"
#include "script/stimulus.h"
#include "script/stimulus_lists.h"
#include "script/wildcard.h"

using namespace brisolt;

namespace {

bool complete(const StimulusList& list) noexcept {
    if (list.count < 1)
        return true;
    auto none = [&list](const char* const* strings) {
        return strings == nullptr ||
               std::find(strings, strings + list.count, nullptr) != strings + list.count;
    };
    return !none(list.stimuli) && !none(list.responses);
}

} // namespace

// ---- peeks

BRISOLT_EXPORT int32_t ComPeekChar(int32_t port, int32_t character, int32_t* position) {
    if (position == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return peekChar(open, character, position, "ComPeekChar"); });
}
BRISOLT_EXPORT int32_t ComPkChar(int32_t port, int32_t character) {
    int32_t position = 0;
    return onPort(port, -1, [&](Port& open) { return peekChar(open, character, &position, "ComPkChar"); });
}
BRISOLT_EXPORT int32_t ComPeekBuf(int32_t port, void* buffer, int32_t count) {
    return onPort(port, -1, [=](Port& open) { return peekBuffer(open, buffer, count); });
}
BRISOLT_EXPORT int32_t ComPeekString(int32_t port, const char* pattern, int32_t* position) {
    if (pattern == nullptr || position == nullptr)
        return -1;
    return onPort(port, -1,
                  [=](Port& open) { return peekString(open, pattern, position, Pattern::wildcards); });
}
BRISOLT_EXPORT int32_t ComPeekString_NoWildCard(int32_t port, const char* string, int32_t* position) {
    if (string == nullptr || position == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return peekString(open, string, position, Pattern::plain); });
}
BRISOLT_EXPORT int32_t ComStrStr(const char* text, const char* pattern, int32_t* position) {
    if (text == nullptr || pattern == nullptr || position == nullptr)
        return 0;
    auto found = wildSearch(text, pattern);
    if (found)
        *position = static_cast<int32_t>(*found);
    return found ? 1 : 0;
}

// ---- stimulus and response

BRISOLT_EXPORT int32_t ComStimulus(int32_t port, const char* stimulus, const char* response, int32_t maximum,
                                   int32_t seconds) {
    if (stimulus == nullptr || response == nullptr)
        return -1;
    return onPort(port, -1,
                  [=](Port& open) { return brisolt::stimulus(open, stimulus, response, maximum, seconds); });
}
BRISOLT_EXPORT int32_t ComStimulusFast(int32_t port, const char* stimulus, const char* response,
                                       int32_t maximum, int32_t seconds) {
    if (stimulus == nullptr || response == nullptr)
        return -1;
    return onPort(port, -1,
                  [=](Port& open) { return stimulusFast(open, stimulus, response, maximum, seconds); });
}
BRISOLT_EXPORT int32_t ComStimulusImmediate(int32_t port, const char* stimulus, const char* response,
                                            int32_t maximum) {
    if (stimulus == nullptr || response == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return stimulusImmediate(open, stimulus, response, maximum); });
}
BRISOLT_EXPORT int32_t ComStimulusArray(int32_t port, const char* const* stimuli,
                                        const char* const* responses, int32_t count, int32_t maximum,
                                        int32_t seconds) {
    StimulusList list{stimuli, responses, std::max(count, 0)};
    return onPort(port, -1, [&](Port& open) {
        clearCancel(open);
        return complete(list) ? stimulusArray(open, list, maximum, seconds) : -1;
    });
}
BRISOLT_EXPORT int32_t ComStimulusArrayFast(int32_t port, const char* const* stimuli,
                                            const char* const* responses, int32_t count, int32_t maximum,
                                            int32_t seconds) {
    if (!validPort(port))
        return -12;
    StimulusList list{stimuli, responses, std::max(count, 0)};
    return onPort(port, -11, [&](Port& open) {
        return complete(list) ? stimulusArrayFast(open, list, maximum, seconds) : -13;
    });
}
BRISOLT_EXPORT int32_t ComStimulusArray2(int32_t port, int32_t count, int32_t maximum, int32_t seconds) {
    if (!validPort(port))
        return -1;
    return onPort(port, -11,
                  [=](Port& open) { return stimulusOfLists(open, std::max(count, 0), maximum, seconds); });
}
BRISOLT_EXPORT int32_t ComStimulusArray2Fast(int32_t port, int32_t count, int32_t maximum, int32_t seconds) {
    return ComStimulusArray2(port, count, maximum, seconds);
}

BRISOLT_EXPORT int32_t ComAddStimList(int32_t port, const char* string, int32_t length) {
    if (string == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return addStimulus(open, string, length); });
}
BRISOLT_EXPORT int32_t ComAddRespList(int32_t port, const char* string, int32_t length) {
    if (string == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return addResponse(open, string, length); });
}
BRISOLT_EXPORT int32_t ComFreeStimList(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        freeStimuli(open);
        return 1;
    });
}
BRISOLT_EXPORT int32_t ComFreeRespList(int32_t port) {
    return onPort(port, -1, [](Port& open) {
        freeResponses(open);
        return 1;
    });
}

// ---- the match buffer

BRISOLT_EXPORT char* ComGettestbuffer(int32_t port) {
    if (!validPort(port))
        return reinterpret_cast<char*>(intptr_t{-1});
    return onPort(port, nullptr, [](Port& open) -> char* { return open.workArea->matchBuf; });
}
BRISOLT_EXPORT int32_t ComGetteststring(int32_t port, char* buffer, int32_t count) {
    if (buffer == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) {
        copyMatched(open, buffer, count);
        return 1;
    });
}
BRISOLT_EXPORT int32_t ComGetBufLen(int32_t port) {
    return onPort(port, -1, [](Port& open) { return open.workArea->matchLen.load(); });
}
BRISOLT_EXPORT intptr_t ComGetStringPtr(intptr_t string) {
    return string;
}

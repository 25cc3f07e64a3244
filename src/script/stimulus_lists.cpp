#include "script/stimulus_lists.h"

#include <algorithm>
#include <cstring>

#include "port/port_table.h"

namespace brisolt {

namespace {

using Entry = char[40];

/// A bounded copy that is always terminated.
void setEntry(Entry& entry, const char* string, int32_t length) noexcept {
    std::memset(entry, 0, sizeof entry);
    auto most = static_cast<std::size_t>(std::clamp<int32_t>(length, 0, sizeof entry - 1));
    std::memcpy(entry, string, strnlen(string, most));
}

int32_t add(Entry (&list)[listSize], int32_t& count, const char* string, int32_t length) noexcept {
    if (count >= static_cast<int32_t>(listSize))
        return -1;
    setEntry(list[count++], string, length);
    return 1;
}

} // namespace

ListedStimuli::ListedStimuli(Port& port) noexcept {
    HeldLock lock(port);
    std::memcpy(stimulusTexts_, port.workArea->stimList, sizeof stimulusTexts_);
    std::memcpy(responseTexts_, port.workArea->respList, sizeof responseTexts_);
    std::copy(std::begin(stimulusTexts_), std::end(stimulusTexts_), stimuli);
    std::copy(std::begin(responseTexts_), std::end(responseTexts_), responses);
}

bool ListedStimuli::has(int32_t count) const noexcept {
    auto filled =
        std::find_if(std::begin(stimuli), std::end(stimuli), [](const char* text) { return *text == 0; });
    return count <= filled - std::begin(stimuli);
}

int32_t addStimulus(Port& port, const char* string, int32_t length) noexcept {
    HeldLock lock(port);
    PortWorkArea& work = *port.workArea;
    return *string == 0 ? -1 : add(work.stimList, work.stimCount, string, length);
}

int32_t addResponse(Port& port, const char* string, int32_t length) noexcept {
    HeldLock lock(port);
    return add(port.workArea->respList, port.workArea->respCount, string, length);
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

} // namespace brisolt

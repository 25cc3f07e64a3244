// The lists of strings and answers that a port keeps for ComStimulusArray2.
#pragma once

#include <cstddef>
#include <cstdint>

#include "port/port.h"

namespace brisolt {

inline constexpr std::size_t listSize = std::extent_v<decltype(PortWorkArea::stimList)>;

/// What the lists held at one moment: who changes them later changes those of the next call.
class ListedStimuli {
public:
    explicit ListedStimuli(Port& port) noexcept;
    ListedStimuli(const ListedStimuli&) = delete;
    ListedStimuli& operator=(const ListedStimuli&) = delete;
    /// Whether the first `count` strings are there.
    bool has(int32_t count) const noexcept;

    const char* stimuli[listSize];
    const char* responses[listSize]; ///< empty where there is no answer

private:
    decltype(PortWorkArea::stimList) stimulusTexts_;
    decltype(PortWorkArea::respList) responseTexts_;
};

/// 1, or -1: the list is full, or a string to wait for is empty. An answer may be empty.
int32_t addStimulus(Port& port, const char* string, int32_t length) noexcept;
int32_t addResponse(Port& port, const char* string, int32_t length) noexcept;
void freeStimuli(Port& port) noexcept;
void freeResponses(Port& port) noexcept;

} // namespace brisolt

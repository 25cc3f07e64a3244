// Waits for one of several strings to come in on a port, answers it, and tells which it was. The bytes
// looked at are read; they stay in the port's match buffer, where the caller can see them afterwards.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// The strings to wait for and their answers, of the same index. An empty answer sends nothing.
struct StimulusList {
    const char* const* stimuli;
    const char* const* responses;
    int32_t count;
};

int32_t stimulus(Port& port, const char* awaited, const char* response, int32_t maximum, int32_t seconds);
/// The same as a part of a longer call: a cancel given before it ends it, too.
int32_t stimulusWithin(Port& port, const char* awaited, const char* response, int32_t maximum,
                       int32_t seconds);
int32_t stimulusFast(Port& port, const char* awaited, const char* response, int32_t maximum, int32_t seconds);
int32_t stimulusImmediate(Port& port, const char* awaited, const char* response, int32_t maximum);
int32_t stimulusArray(Port& port, const StimulusList& list, int32_t maximum, int32_t seconds);
int32_t stimulusArrayFast(Port& port, const StimulusList& list, int32_t maximum, int32_t seconds);
/// With the lists that the port keeps.
int32_t stimulusOfLists(Port& port, int32_t count, int32_t maximum, int32_t seconds);

/// The match buffer's text into `count` bytes, filled up with zero bytes; not terminated when it has more.
void copyMatched(Port& port, char* destination, int32_t count) noexcept;

} // namespace brisolt

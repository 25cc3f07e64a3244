// The reads that wait: for a count, for a terminator, for a quiet line.
#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "port/port.h"

namespace brisolt {

int32_t readTimed(Port& port, void* buffer, int32_t count, int32_t hundredths);
int32_t readBuffer(Port& port, uint8_t* buffer, int32_t terminator, int32_t maximum, int32_t seconds);
int32_t readToQuiet(Port& port, uint8_t* buffer, int32_t size, int32_t tenths);

/// Sleeps until bytes or something else to look at come; the caller looked at its conditions at `seen`.
/// A quit that this wait does not end on stays pending: then messages are not handled, nor waited for.
void sleepForBytes(Port& port, uint32_t seen, bool endsOnQuit, bool messages, const clock::Deadline& until);

} // namespace brisolt

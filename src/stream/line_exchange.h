// Line settings that are asked for and read back, and the lines as they are.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// ComHostSetLine.
int32_t setLine(Port& port, int32_t baudRate, const char* framing, int32_t flow);
/// ComHostGetLine, with a record of this library's own.
int32_t getLine(Port& port, ComHostLineState& state);
/// ComHostGetLines.
int32_t getLines(Port& port);

} // namespace brisolt

// Waiting until something has happened on the lines of a port.
#pragma once

#include "port/port.h"

namespace brisolt {

/// ComHostWaitEvent.
int32_t waitForEvent(Port& port, uint32_t events, ComHostCounters& seen, int32_t milliseconds);

} // namespace brisolt

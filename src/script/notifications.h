// Telling callers that data has arrived on a port.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

int32_t notifyWindow(Port& port, int32_t window);
int32_t notifyThread(Port& port, uint32_t thread);
int32_t notifyFunction(Port& port, ComPortFunc function);

} // namespace brisolt

// Changes of an open port's line: baud rate, framing, break, DTR pulse.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// Waits until the device has sent what it holds, half a second at most.
void drainWait(Port& port);

int32_t setBaud(Port& port, int32_t baud);
int32_t setParms(Port& port, int32_t parity, int32_t dataBits, int32_t stopBits);
/// setParms with what stands in the record.
int32_t applyFraming(Port& port);

int32_t sendBreak(Port& port);
int32_t setBreak(Port& port, bool on);
int32_t pulseDtr(Port& port);

} // namespace brisolt

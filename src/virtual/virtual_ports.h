// Ports without a device: what they do is done by functions of the caller's.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// ComVirtualOpen of a valid number.
int32_t openVirtual(int32_t number);
/// ComVirtualClose. -1 for a port with a device, and for one that another thread is closing.
int32_t closeVirtual(Port& port);
/// The same without the pause for those who are still inside.
int32_t closeVirtualAtOnce(Port& port);

} // namespace brisolt

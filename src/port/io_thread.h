// The I/O thread of a port: sleeps until there is something to move, then runs a round, no closer to the
// last than the port's pace.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// Starts the port's thread and announces it once it is there, so that its first line cannot land in a
/// trace that is switched on later. False when the host has no thread.
bool startIoThread(Port& port) noexcept;

/// True on the port's own I/O thread, which a notification function runs on.
bool onIoThread(const Port& port) noexcept;

/// ComSetBackgroundPriority.
void setIoPriority(Port& port, int32_t level) noexcept;

} // namespace brisolt

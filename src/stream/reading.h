// Reading without waiting: bytes out of the receive ring.
#pragma once

#include <cstdint>
#include <span>

#include "port/port.h"

namespace brisolt {

/// ComRead.
int32_t read(Port& port, void* buffer, int32_t count);
/// What the ring holds, and what the device gives at once into the caller's own buffer while the ring is empty.
/// No driver function is asked.
int32_t readRing(Port& port, uint8_t* to, int32_t count) noexcept WITH_LOCK(port.portLock);
int32_t readDevice(Port& port, std::span<uint8_t> to) noexcept WITH_LOCK(port.portLock);
/// ComGetc.
int32_t readByte(Port& port);
/// ComStatus.
int32_t bytesWaiting(Port& port);
/// As bytesWaiting for a wait that takes bytes off the device while it sleeps: looks at the ring
/// alone where that is all there is to see.
int32_t bytesArrived(Port& port);
/// ComReadBufToEmpty.
int32_t readToEmpty(Port& port, uint8_t* buffer, int32_t terminator, int32_t maximum);

} // namespace brisolt

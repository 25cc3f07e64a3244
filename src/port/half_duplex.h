// Half duplex by RTS, for buses whose transceiver has to be switched: the line is raised before bytes are sent and
// lowered when the last bit of the last has left. All bytes go through the transmit ring, and the port's thread
// alone sends them.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// Values of the port's halfDuplex.
inline constexpr int32_t fullDuplex = 0;
inline constexpr int32_t rtsLowered = 1; ///< listening
inline constexpr int32_t rtsRaised = 2;  ///< sending

/// False also while the device is gone for good: what the ring holds stays there.
bool mayStartSending(const Port& port) noexcept;
/// Sends what the ring holds and what comes in meanwhile; the calling thread is the port's own.
void sendHalfDuplex(Port& port);
/// Switches the bus to listening, at an open and when a device has come back.
void listenHalfDuplex(Port& port) noexcept;

} // namespace brisolt

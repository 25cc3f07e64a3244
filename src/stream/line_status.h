// What an open port's line tells: carrier, CTS, DSR, a break that was seen.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

int32_t carrier(Port& port); ///< 1, 0; -1 when the lines cannot be read
int32_t clearToSend(Port& port);
int32_t dataSetReady(Port& port);

/// The latched connected state, which is not the line's.
int32_t carrierLatch(const Port& port) noexcept;
int32_t setCarrierLatch(Port& port, bool on) noexcept;

/// 1 once after a break.
int32_t takeBreakSeen(Port& port);

} // namespace brisolt

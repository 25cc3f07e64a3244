// The port's dealings with its device: status reads, and blocks in and out with their trace.
#pragma once

#include <cstdint>
#include <span>

#include "port/port.h"

namespace brisolt {

/// A device status read: collects the pending line errors into the record and latches a break. Beside the
/// errors only what `wanted` names (COM_HOST_WANT_...) is asked of the device.
ComHostStatus statusRead(Port& port, uint32_t wanted = 0) noexcept;

/// Reads what the device holds, at most the span's size. Bytes read.
int32_t deviceRead(Port& port, std::span<uint8_t> destination) noexcept;

/// Hands the device a block that is complete when the line has taken it. Bytes written; -1 when the device
/// has no room for all of it or the port is not open: then nothing is written.
int32_t deviceWrite(Port& port, std::span<const uint8_t> block) noexcept;

/// The write itself, with its trace, once the room is known. Bytes written.
int32_t writeBlock(Port& port, std::span<const uint8_t> block, int32_t room) noexcept;

/// Hands the device what it takes at once; never waits. Bytes taken.
int32_t writeNow(Port& port, std::span<const uint8_t> bytes) noexcept;

} // namespace brisolt

// The port trace: a line for everything the port engine does, in the file that ComSetPortDebugFile named.
#pragma once

#include <cstdint>
#include <span>

#include "port/port.h"

namespace brisolt {

/// All that the trace costs while it is off.
inline bool tracing(const Port& port) noexcept {
    return port.traceOn.load(std::memory_order_relaxed) != 0;
}

/// Switches the trace on, with a header, or off (null or empty). 1, also when the file cannot be made; -1
/// the path is too long.
int32_t setTraceFile(Port& port, const char* path);

/// One stamped entry. Nothing happens when the trace is off, its file does not exist, or the port is not
/// open any more.
[[gnu::format(printf, 2, 3)]] void trace(Port& port, const char* format, ...) noexcept;

/// The heading as an entry, then the bytes in hex, a line an entry.
void traceBytes(Port& port, const char* heading, std::span<const uint8_t> bytes) noexcept;

} // namespace brisolt

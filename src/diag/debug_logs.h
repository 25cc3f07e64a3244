// The debug, protocol and verify log of a port: switching them on with a header, and the forms of entries
// beyond a plain text.
#pragma once

#include <cstdint>
#include <string_view>

#include "diag/hex_dump.h"
#include "port/log_file.h"

namespace brisolt::logs {

/// Switches one of the three on, with a header that carries the title (null: an empty one), or off. 1; -1
/// the path is too long; -2 the file cannot be written.
int32_t switchTo(Port& port, Log log, const char* path, const char* title);

/// The text on a line of its own, after the stamp or without one.
int32_t writeLine(Port& port, Log log, Stamp stamp, std::string_view text);
/// A text cut like a formatted one, but not scanned for directives.
int32_t writeCut(Port& port, Log log, std::string_view text) noexcept;
/// Bytes in hex. -1 when there are none to read.
int32_t writeDump(Port& port, Log log, const HexDump& form, const void* bytes, int32_t length);

} // namespace brisolt::logs

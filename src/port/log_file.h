// The log files of a port: the port trace, the debug, the protocol and the verify log. One writer and one
// formatter serve all four.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string_view>

#include "port/port.h"

namespace brisolt::logs {

enum class Log { trace, debug, protocol, verify };

/// The library version in every header.
inline constexpr const char* version = "5.30";

inline constexpr int32_t entrySize = 1024; ///< an expanded message, terminator included

/// Switches a log on (a path) or off (null or empty) by its name in the record; a path of 260 bytes or
/// more is refused with false. The header is the caller's to write.
bool name(Port& port, Log log, const char* path) noexcept;

/// How an entry begins.
enum class Stamp { stamped, none };

/// One entry: 1 written, 0 the log is off, -2 the file could not be opened.
int32_t write(Port& port, Log log, Stamp stamp, std::string_view text) noexcept;
/// The same with a formatted text, cut at entrySize.
int32_t format(Port& port, Log log, const char* text, std::va_list arguments) noexcept;
[[gnu::format(printf, 3, 4)]] int32_t entry(Port& port, Log log, const char* text, ...) noexcept;

} // namespace brisolt::logs

// Why the host refused something, for people: kept per thread, and told to the host's debugger output.
#pragma once

#include <string>
#include <string_view>

namespace brisolt {

/// Remembers the calling thread's last failure and sends it to the debugger output.
void setErrorText(std::string text) noexcept;
const std::string& errorText() noexcept;

/// The host's debugger output: whoever watches it (a debugger, the system log) sees the line; nothing
/// else of the program does.
void debugOutput(std::string_view text) noexcept;
/// Tests only: receives every line of debugger output from now on; null: the host again.
void setDebugOutputSink(void (*sink)(std::string_view text)) noexcept;

} // namespace brisolt

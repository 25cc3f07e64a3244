// Why the host refused something, for people: kept per thread, and told to the debug output.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace brisolt {

/// Remembers the calling thread's last failure and sends it to the debug output.
void setErrorText(std::string text) noexcept;
/// The same with a text put together here: without the memory for it there is none, rather than an older one.
void setErrorTextFrom(std::initializer_list<std::string_view> parts) noexcept;
const std::string& errorText() noexcept;

/// A line for whoever looks for what the library does: it goes where the environment variable
/// BRISOLT_DEBUG_OUTPUT says, and nowhere without one. Never waits, never fails, leaves errno alone.
void debugOutput(std::string_view text) noexcept;

} // namespace brisolt

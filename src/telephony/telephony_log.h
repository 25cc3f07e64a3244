// The telephony log: the debug log of the context port.
#pragma once

#include <cstdint>

namespace brisolt::telephony {

/// Open exactly while telephony is initialised.
inline constexpr int32_t contextPort = 129;

/// One entry, cut like any formatted one. Nothing while telephony is not initialised or has no log.
[[gnu::format(printf, 1, 2)]] void log(const char* format, ...) noexcept;

} // namespace brisolt::telephony

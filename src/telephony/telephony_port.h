// The port that carries a connected call.
#pragma once

#include <cstdint>

namespace brisolt::telephony {

/// What the device holds when a port is opened on it. A service may have left the modem's words there; one that
/// asks to be told of the port has taken them, and what is there are the first bytes of the other end.
enum class Held : uint8_t { discarded, read };

/// ComTAPI_OPENPORT. The handle is the port's, to be closed with it, only when this succeeds.
int32_t openTelephonyPort(int32_t number, int32_t handle, Held held = Held::discarded) noexcept;

} // namespace brisolt::telephony

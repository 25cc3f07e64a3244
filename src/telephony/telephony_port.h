// The port that carries a connected call.
#pragma once

#include <cstdint>

namespace brisolt::telephony {

/// ComTAPI_OPENPORT. The handle is the port's, to be closed with it, only when this succeeds.
int32_t openTelephonyPort(int32_t number, int32_t handle) noexcept;

} // namespace brisolt::telephony

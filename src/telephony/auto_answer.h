// Arming a device for the next incoming call.
#pragma once

#include <cstdint>

namespace brisolt::telephony {

/// ComTAPI_AutoAnswer.
int32_t armAutoAnswer(const char* deviceName, int32_t rings);

} // namespace brisolt::telephony

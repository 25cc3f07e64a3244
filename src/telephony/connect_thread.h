// Placing a call on a thread of its own, and what is said to it from outside.
#pragma once

#include <cstdint>

#include "telephony/connect.h"

namespace brisolt::telephony {

/// ComTAPI_Connect_Thread.
int32_t connectOnThread(const CallRequest& request);
/// ComTAPI_Cancel of a known device.
void cancel(TelephonyDevice& device);

} // namespace brisolt::telephony

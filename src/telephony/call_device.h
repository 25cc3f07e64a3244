// Whose call a message is about.
#pragma once

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

/// The device that has the call. Of one that nobody has: when it is `offered`, the first device that waits for a
/// call; else the one that is dialling. Failing that the first with an open line. Null when there is none, and
/// for a late word about a call that is over.
TelephonyDevice* deviceOfCall(uint32_t call, bool offered);

/// A line has rung that was offered no call: takes over one that went to another waiting line by mistake,
/// since the offer does not say which line it is for.
void claimOffer(TelephonyDevice& device);

} // namespace brisolt::telephony

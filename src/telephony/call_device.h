// Whose call a message is about.
#pragma once

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

/// The device that has the call, else one that is waiting for a call; null when there is none.
TelephonyDevice* deviceOfCall(uint32_t call);

/// A line has rung that was offered no call: takes over one that went to another waiting line by mistake,
/// since the offer does not say which line it is for.
void claimOffer(TelephonyDevice& device);

} // namespace brisolt::telephony

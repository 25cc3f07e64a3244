// Whose call a message is about.
#pragma once

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

/// The device that has the call, else one that is waiting for a call; null when there is none, and for a late
/// word about a call that is over (`begins`: the word that a call begins, which may have an old one's handle).
TelephonyDevice* deviceOfCall(uint32_t call, bool begins);

/// A line has rung that was offered no call: takes over one that went to another waiting line by mistake,
/// since the offer does not say which line it is for.
void claimOffer(TelephonyDevice& device);

} // namespace brisolt::telephony

// Ending a call and closing its line.
#pragma once

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

/// Drops and releases the call, closes the line. One hang-up a device at a time: one inside another does
/// nothing; on a thread that is not in the middle of a message it waits for the other's end.
void hangUp(const Use& use);

/// Releases the handles that the use still has, without waiting for the last states of the call.
void releaseWhatIsLeft(const Use& use);

/// ComTAPI_Disconnect of a known device.
void disconnect(TelephonyDevice& device);

/// Releases what the devices still hold at the service: of a telephony whose context port was closed without
/// its shutdown.
void releaseAll();

} // namespace brisolt::telephony

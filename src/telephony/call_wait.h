// Waiting for the state of a call, and ending one. Both let the service's messages through meanwhile, so that
// a call makes progress on whichever thread waits; a hang-up inside a message may be nested in a wait.
#pragma once

#include <cstdint>

#include "port/port.h"
#include "telephony/telephony_device.h"

namespace brisolt::telephony {

enum class Waited {
    reached,
    aborted, ///< cancelled, or the device or the context is no longer ours
    failed,  ///< the call has ended, or the time is over
};

/// Waits until the call is in that state; 0: in any other than it was.
Waited waitForCallState(const Use& use, uint32_t wanted);

/// Whether the device's connect has been cancelled, in which case it is ended: no number is dialled then.
bool endIfCancelled(const Use& use);

/// Handles messages, and sleeps until there is news of any device (the context port's events differ from
/// `seen`) or a fifth of a second is over.
void passTime(Port& context, uint32_t seen);

} // namespace brisolt::telephony

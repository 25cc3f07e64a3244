// The service's messages about the state of a line.
#pragma once

#include "telephony/call_messages.h"

namespace brisolt::telephony {

/// Message lineDeviceState.
void handleDeviceState(const Report& report);

} // namespace brisolt::telephony

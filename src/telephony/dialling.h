// Dialling through the service: the line, the call parameters, the request, the wait for the connection.
#pragma once

#include <string>

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

/// Places the call and waits until it is connected or has failed; then the line is closed and the entry has
/// the cause.
void dial(const Use& use, const std::string& dialString);

} // namespace brisolt::telephony

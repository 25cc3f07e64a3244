// A call that the telephony service places and answers.
#pragma once

#include <string>

/// Two lines of the service, a simulated modem at each: one waits for a call, the other dials, a message goes
/// each way, both hang up. The lines' profile and the log of telephony are written in `directory`. Throws when
/// anything does not work.
void callByTelephony(const std::string& directory);

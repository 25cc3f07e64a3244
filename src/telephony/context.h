// The telephony context: from the initialisation to the shutdown the library is registered with the service
// and the context port is open.
#pragma once

#include <cstdint>

namespace brisolt::telephony {

/// ComTAPI_INIT.
int32_t initialise(const char* logFile);
/// Com_TAPI_Shutdown.
int32_t shutDown();

bool initialised() noexcept;
uint32_t applicationHandle() noexcept;

/// ComTAPI_SetModemWaitTime.
void setModemWaitTime(uint32_t seconds) noexcept;
/// How long a modem may take, in milliseconds.
uint32_t modemWaitTime() noexcept;

} // namespace brisolt::telephony

// Writing: straight to the device, or into the transmit ring.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// ComWrite.
int32_t write(Port& port, void* buffer, int32_t count);
/// ComPutc.
int32_t writeByte(Port& port, int32_t value);
/// ComPuts.
int32_t writeString(Port& port, const char* string);
/// ComOutBufStatus.
int32_t bytesUnsent(Port& port);

/// The device may take bytes again, for all we know; not while some are queued that it has refused.
void forgetRefusal(Port& port) noexcept;

} // namespace brisolt

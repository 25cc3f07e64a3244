// Flushes, and the settings of the byte stream.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

int32_t flushReceived(Port& port, int32_t seconds); ///< Com_Flush
int32_t flushUnsent(Port& port);                    ///< ComFlushOutBuf
int32_t flushDevice(Port& port);                    ///< ComFlushImmediate
int32_t setWriteTimeout(Port& port, uint32_t milliseconds);
int32_t setMaxWriteChars(Port& port, int32_t count);
int32_t setErrorReplacement(Port& port, int32_t enable, uint8_t replacement);
int32_t takeLineErrors(Port& port);
int32_t setLossless(Port& port, bool on);

} // namespace brisolt

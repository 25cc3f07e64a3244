// A port's settings as the records that callers read and replace whole.
#pragma once

#include <cstdint>

#include "api/brisolt/parameters.h"
#include "port/port.h"

namespace brisolt {

/// 1; -1 no memory for the word of a function, and then the record is as it was.
int32_t getPortParms(Port& port, ComPortParms& parms);
/// Stores the record; the device hears nothing of it.
void storePortParms(Port& port, const ComPortParms& parms);

int32_t getModemParms(Port& port, ComModemParms& parms);
int32_t setModemParms(Port& port, const ComModemParms& parms);
int32_t getAsciiParms(Port& port, ComAsciiParms& parms);
int32_t setAsciiParms(Port& port, const ComAsciiParms& parms);

} // namespace brisolt

// A port's settings as the records that callers read and replace whole.
#pragma once

#include <cstdint>

#include "brisolt/parameters.h"
#include "port/port.h"

namespace brisolt {

/// 1; -1 no memory for the word of a function, and then the record is as it was.
int32_t getPortParms(Port& port, ComPortParms& parms);
/// Stores the record; the device hears nothing of it.
void storePortParms(Port& port, const ComPortParms& parms);
/// What reading the record, changing one field and writing it back comes to, but in one step: threads that
/// change different fields at once do not undo each other's change. 1.
int32_t setPortNumber(Port& port, Shared<int32_t> PortRecord::*field, int32_t value);

int32_t getModemParms(Port& port, ComModemParms& parms);
int32_t setModemParms(Port& port, const ComModemParms& parms);
int32_t getAsciiParms(Port& port, ComAsciiParms& parms);
int32_t setAsciiParms(Port& port, const ComAsciiParms& parms);

} // namespace brisolt

// Flow modes and the control lines DTR and RTS.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

int32_t setFlow(Port& port, int32_t mode);
int32_t setDtr(Port& port);
int32_t clearDtr(Port& port);
int32_t setRts(Port& port);
int32_t clearRts(Port& port);

} // namespace brisolt

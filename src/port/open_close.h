// Opening and closing of hardware ports.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

struct OpenArguments {
    const char* deviceName;
    int32_t number;
    int32_t baudRate;
    int32_t dataBits;
    int32_t parity;
    int32_t stopBits;
    uint32_t rxSize;
    uint32_t txSize;
};

/// ComOpen: the device of the port's own name.
int32_t openPort(const OpenArguments& arguments);
/// ComPreOpen: a device handle that the caller keeps.
int32_t openPortOn(const OpenArguments& arguments, int32_t handle);

/// What every close comes to: the port is gone for everybody; those inside leave, and the last of them takes
/// the blocks along.
void turnOff(Port& port);

/// ComClose and ComPreClose.
int32_t closePort(Port& port);
int32_t preClosePort(Port& port);

} // namespace brisolt

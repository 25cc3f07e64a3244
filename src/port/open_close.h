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
    const char* path = nullptr; ///< null: the device of the port's number
};

/// ComOpen: the device of the port's own name.
int32_t openPort(const OpenArguments& arguments);
/// ComHostOpen: any device, on a number that nobody uses.
int32_t openPath(const char* path, int32_t baudRate, const char* framing);
/// ComPreOpen: a device handle that the caller keeps.
int32_t openPortOn(const OpenArguments& arguments, int32_t handle);

/// What every close comes to: the port is gone for everybody; those inside leave, and the last of them takes
/// the blocks along.
void turnOff(Port& port);

/// ComClose and ComPreClose.
int32_t closePort(Port& port);
int32_t preClosePort(Port& port);
/// ComHostClose, of a port with a device: 1, -1.
int32_t closePortAtOnce(Port& port);

} // namespace brisolt

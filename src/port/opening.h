// What every open of a port with a device comes to, wherever the device is from.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt {

/// An open in the making: takes the number, and gives everything back unless it succeeds.
class Opening {
public:
    Opening(int32_t number, uint32_t rxSize, uint32_t txSize) noexcept;
    ~Opening();
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;

    /// Below 0: it has failed already, and there is no port.
    int32_t code() const noexcept { return code_; }
    Port& port() const noexcept { return *port_; }
    /// Everybody finds the port from here on. Its number.
    int32_t succeed() noexcept;

private:
    void begin(uint32_t rxSize, uint32_t txSize) noexcept;

    int32_t number_;
    bool claimed_ = false;
    Port* port_ = nullptr;
    int32_t code_ = 0;
};

/// The last step, once the device and the record are set up: lines raised, thread started, no flow control.
/// 0; -38 no thread.
int32_t startPort(Port& port);

} // namespace brisolt

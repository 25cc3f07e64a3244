// What a program has set on a device, to be set again on the one that comes back.
#pragma once

#include <cstdint>
#include <optional>

#include "device/driver_registry.h"

namespace brisolt::drivers {

struct RememberedSettings {
    ComHostLineState line{};
    bool lineSet = false;
    ComHostTimeouts timeouts{};
    bool timeoutsSet = false;
    uint32_t inQueue = 0, outQueue = 0;
    bool queuesSet = false;
    std::optional<bool> dtr, rts; ///< as last driven

    /// Sets it all. Whether the device runs as it shall.
    bool setUp(const Opened& opened) const noexcept;
    /// The lines begin as the program has left them.
    DeviceOptions startOf(const DeviceOptions& options) const noexcept;
};

} // namespace brisolt::drivers

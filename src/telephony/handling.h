// Marks that a message of a device is being handled. Its state shows before everything that follows from it
// (the open port, the cause of a failure) is there; whoever waits for the device on another thread looks
// again when the message has been dealt with.
#pragma once

#include "telephony/telephony_device.h"

namespace brisolt::telephony {

class Handling {
public:
    explicit Handling(TelephonyDevice& device) noexcept;
    ~Handling();
    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;

    /// Whether the calling thread is inside any message.
    static bool onThisThread() noexcept;
    /// Whether another thread is inside a message of the device.
    static bool elsewhere(const TelephonyDevice& device) noexcept;

private:
    TelephonyDevice& device_;
    Handling* outer_;
};

} // namespace brisolt::telephony

// Reading and writing that wait, between the caller's buffer and the device without a ring in between.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt::exchange {

/// Why an exchange has ended without a byte.
enum : int32_t { closed = -1, gone = -2, cancelledByUser = -3, cannot = -4, interrupted = -5 };

/// ComHostWrite.
int32_t write(Port& port, const void* buffer, int32_t count, int32_t milliseconds);
/// ComHostRead.
int32_t read(Port& port, void* buffer, int32_t count, int32_t milliseconds);
/// ComHostDescriptor.
int32_t descriptor(Port& port);
/// ComHostDrain. Whoever closes is not kept from it by signals.
int32_t drain(Port& port, int32_t milliseconds, bool signalsEnd = true);

/// For a close: waits at most so long for what was written to leave, which no signal ends. Whether something has not.
bool leftAfter(Port& port, int32_t milliseconds);

/// What ends the waits of one call, whatever else it waits for: its time, a close, the end of the device, a
/// cancel that is given while it runs.
class Call {
public:
    Call(Port& port, int32_t milliseconds) noexcept
        : port_(port), cancels_(port.cancels.load()),
          until_(milliseconds < 0 ? clock::Deadline::never()
                                  : clock::Deadline::in(static_cast<uint32_t>(milliseconds))) {}
    const clock::Deadline& until() const noexcept { return until_; }
    /// 0: it may go on.
    int32_t ended() const noexcept {
        if (port_.ending())
            return closed;
        if (port_.cancels.load() != cancels_)
            return cancelledByUser;
        return port_.device.present() && port_.device.state() == COM_HOST_DEVICE_GONE ? gone : 0;
    }

private:
    Port& port_;
    uint32_t cancels_;
    clock::Deadline until_;
};

} // namespace brisolt::exchange

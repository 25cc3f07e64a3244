// A flag with a descriptor: it polls readable while the flag is set. And the wait on several descriptors.
#pragma once

#include <cstdint>
#include <span>

#include "platform/clock.h"

namespace brisolt {

class Signal {
public:
    Signal() noexcept; ///< descriptor() is -1 when the host has none left
    explicit Signal(int32_t descriptor) noexcept : descriptor_(descriptor) {} ///< takes it over; -1: none
    ~Signal();
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;
    void set() noexcept;
    void clear() noexcept;
    int32_t descriptor() const noexcept { return descriptor_; }

private:
    int32_t descriptor_;
};

struct Watch {
    int32_t descriptor = -1; ///< below 0: skipped
    bool forRead = false;
    bool forWrite = false;
    bool readable = false; ///< out
    bool writable = false; ///< out
    bool hungUp = false;   ///< out
};

/// Waits until one watch happens or the time is over (real milliseconds, -1: no limit). How many
/// happened; 0 also after a moment when the host cannot wait; -1 when a signal handler has run meanwhile.
int32_t waitAny(std::span<Watch> watches, int32_t realMilliseconds) noexcept;

} // namespace brisolt

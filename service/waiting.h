// What a modem's thread waits with: descriptors, a time, and a call from another thread.
#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <span>

#include <poll.h>

#include "descriptor.h"

namespace brisolt::service {

using Clock = std::chrono::steady_clock;
using Until = std::optional<Clock::time_point>; ///< none: for ever

/// Whichever comes first.
Until sooner(Until one, Until other) noexcept;

/// Waits until something happens at one of the descriptors; false: the time is over. A host that cannot wait
/// (it may be short of memory) is asked again a moment later, and what is waited for counts as having happened
/// meanwhile: reads and writes that do not block find out.
bool waitFor(std::span<pollfd> entries, Until until) noexcept;

/// A call that ends a wait for its descriptor. The flag tells whether there was one.
class Wake {
public:
    /// False: the host has no descriptor left.
    bool open() noexcept;
    void call() noexcept;
    void clear() noexcept;
    bool called() const noexcept { return called_; }
    int descriptor() const noexcept { return event_.get(); }

private:
    Descriptor event_;
    std::atomic<bool> called_{false};
};

} // namespace brisolt::service

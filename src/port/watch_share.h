// How the I/O thread shares the watch over the device with callers: it stands aside while they watch, and
// for a moment after, since a caller that came once comes again.
#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "port/port.h"

namespace brisolt {

/// How long the thread leaves the device to callers after the last has watched it. Their own calls take
/// what comes meanwhile; what is to be sent must not wait for long.
inline constexpr uint32_t receivingLease = 20;
inline constexpr uint32_t sendingLease = 1;

/// The thread's side of one watch.
class WatchShare {
public:
    explicit WatchShare(uint32_t lease) noexcept : lease_(lease) {}

    /// Who watches while the thread sleeps.
    ThreadWatch choose(const SharedWatch& shared) noexcept {
        uint32_t begun = shared.begun.load();
        bool watched = shared.watchers.load() > 0;
        bool justLeft = wasParked_ && !watched;
        wasParked_ = false;
        if (begun != seen_ || justLeft) {
            seen_ = begun;
            asideUntil_ = clock::Deadline::in(lease_);
            return ThreadWatch::aside;
        }
        if (watched) {
            wasParked_ = true;
            return ThreadWatch::parked;
        }
        return asideUntil_.passed() ? ThreadWatch::onDevice : ThreadWatch::aside;
    }
    /// A caller has come or gone while the choice was made, and did not see it yet.
    static bool crossed(ThreadWatch choice, const SharedWatch& shared) noexcept {
        bool watched = shared.watchers.load() > 0;
        return (choice == ThreadWatch::onDevice && watched) || (choice == ThreadWatch::parked && !watched);
    }
    const clock::Deadline& asideUntil() const noexcept { return asideUntil_; }

private:
    uint32_t lease_;
    uint32_t seen_ = 0;
    bool wasParked_ = false;
    clock::Deadline asideUntil_ = clock::Deadline::in(0);
};

} // namespace brisolt

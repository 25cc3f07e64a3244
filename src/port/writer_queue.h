// Whose turn it is to hand the device bytes. A caller that waits for room keeps the turn, so that nobody's bytes
// get into the middle of its own: what others write meanwhile waits in the transmit ring, and the ring waits,
// too. Turns are given in the order in which they were asked for. All under the port's sendLock.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/wake.h"

namespace brisolt {

class WriterQueue {
public:
    /// A place in the queue, for the length of a scope of its caller.
    struct Place {
        Wake* wake = nullptr;
        bool granted = false;
        Place* next = nullptr;
    };

    /// Also without the lock: somebody is in the middle of writing.
    bool taken() const noexcept { return taken_.load(std::memory_order_acquire) != 0; }
    void take() noexcept { taken_.store(1, std::memory_order_release); }
    void queue(Place& place) noexcept;
    /// Of a place that has not been granted.
    void leaveQueue(Place& place) noexcept;
    /// To the next in the queue; else it is free.
    void release() noexcept;

private:
    std::atomic<int32_t> taken_{0};
    Place* first_ = nullptr;
};

} // namespace brisolt

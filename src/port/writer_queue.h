// Whose turn it is to hand the device bytes. A caller that waits for room keeps the turn, so that nobody's bytes
// get into the middle of its own: what others write meanwhile waits in the transmit ring, and the ring waits,
// too. Turns are given in the order in which they were asked for. All under the port's sendLock.
#pragma once

#include <atomic>
#include <cstdint>

namespace brisolt {

class WriterQueue {
public:
    /// A place in the queue, for the length of a scope of its caller.
    struct Place {
        bool granted = false;
        Place* next = nullptr;
    };

    /// Also without the lock: somebody is in the middle of writing.
    bool taken() const noexcept { return taken_.load(std::memory_order_acquire) != 0; }
    /// At once when nobody has the turn, else at the end of the queue.
    void ask(Place& place) noexcept;
    /// The turn, or a place in the queue, comes back. True: somebody else has the turn now, whom the caller wakes
    /// (by the port's events, which nobody misses).
    bool leave(Place& place) noexcept;

private:
    std::atomic<int32_t> taken_{0};
    Place* first_ = nullptr;
};

} // namespace brisolt

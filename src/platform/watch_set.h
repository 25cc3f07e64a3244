// A set of descriptors that the host keeps for one thread's waits: a wait costs the same however many there
// are. Others may add and remove while it goes on.
#pragma once

#include <cstdint>
#include <span>

namespace brisolt {

class WatchSet {
public:
    WatchSet() noexcept;
    ~WatchSet();
    WatchSet(const WatchSet&) = delete;
    WatchSet& operator=(const WatchSet&) = delete;

    /// False when the host has no descriptor left for it.
    bool usable() const noexcept { return descriptor_ >= 0; }
    /// Watches for bytes to read. False when the host refuses.
    bool add(int32_t descriptor, uint32_t tag) noexcept;
    /// Before the descriptor is closed.
    void remove(int32_t descriptor) noexcept;
    /// The tags of descriptors that are readable or in trouble, as many as fit; empty when the time is over
    /// (real milliseconds, -1: no limit) or a signal came.
    std::span<uint32_t> wait(std::span<uint32_t> tags, int32_t realMilliseconds) noexcept;

private:
    int32_t descriptor_;
};

} // namespace brisolt

// A set of descriptors that the host keeps for one thread's waits: a wait costs the same however many there
// are. Others may add and remove while it goes on.
#pragma once

#include <cstdint>
#include <span>

namespace brisolt {

class WatchSet {
public:
    /// What a wait reports.
    struct Event {
        uint32_t tag;
        bool trouble; ///< the other end has gone, or an error waits
    };
    /// When a descriptor with bytes is reported.
    enum class Report {
        always, ///< by every wait until they are read
        news,   ///< once for what has come: who is told reads until a read falls short
    };

    WatchSet() noexcept;
    ~WatchSet();
    WatchSet(const WatchSet&) = delete;
    WatchSet& operator=(const WatchSet&) = delete;

    /// False when the host has no descriptor left for it.
    bool usable() const noexcept { return descriptor_ >= 0; }
    /// Watches for bytes to read. False when the host refuses.
    bool add(int32_t descriptor, uint32_t tag, Report report) noexcept;
    /// Before the descriptor is closed.
    void remove(int32_t descriptor) noexcept;
    /// Whatever is readable or in trouble, as many as fit; empty when the time is over (real milliseconds,
    /// -1: no limit) or a signal came.
    std::span<Event> wait(std::span<Event> events, int32_t realMilliseconds) noexcept;

private:
    int32_t descriptor_;
};

} // namespace brisolt

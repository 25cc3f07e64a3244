// A set of descriptors that the host keeps: a wait costs the same however many there are. Others may add and
// remove, and wait, too, while one goes on.
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
    WatchSet() noexcept;
    ~WatchSet();
    WatchSet(const WatchSet&) = delete;
    WatchSet& operator=(const WatchSet&) = delete;

    /// False when the host has no descriptor left for it.
    bool usable() const noexcept { return descriptor_ >= 0; }
    /// Watches for bytes to read, and for trouble. It is reported once for all that has come: whoever is told
    /// reads until a read falls short. False when the host refuses.
    bool add(int32_t descriptor, uint32_t tag) noexcept;
    /// Before the descriptor is closed.
    void remove(int32_t descriptor) noexcept;
    /// Sleeps until there is something to collect, `wake` is readable or the time is over (real milliseconds,
    /// -1: no limit). Whether there is something.
    bool wait(int32_t wake, int32_t realMilliseconds) noexcept;
    /// What there is, as much as fits; it is handed out once.
    std::span<Event> collect(std::span<Event> events) noexcept;

private:
    int32_t descriptor_;
};

} // namespace brisolt

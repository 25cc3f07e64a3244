// The host's clocks: the millisecond tick counter that all waits of the library compare, deadlines, and
// the local date and time of the logs.
#pragma once

#include <chrono>
#include <cstdint>

namespace brisolt::clock {

/// The millisecond tick counter. It wraps; compare ticks by elapsed difference only.
uint32_t ticks() noexcept;

/// The moment at which something is over, in real time. Made from milliseconds of the tick counter.
class Deadline {
public:
    static Deadline never() noexcept;
    static Deadline in(uint32_t milliseconds) noexcept;
    static Deadline at(std::chrono::steady_clock::time_point moment) noexcept;
    bool passed() const noexcept;
    bool isNever() const noexcept;
    /// Real milliseconds left, rounded up; 0 when passed, -1 for never. Fits a poll's time-out.
    int32_t realMillisecondsLeft() const noexcept;
    /// The earlier of two.
    static Deadline earlier(Deadline a, Deadline b) noexcept;
    std::chrono::steady_clock::time_point moment() const noexcept { return moment_; }

private:
    std::chrono::steady_clock::time_point moment_{};
};

/// Sleeps that many milliseconds of the tick counter, nothing ends it early.
void sleep(uint32_t milliseconds) noexcept;

struct LocalTime {
    int32_t year, month, day, hour, minute, second, millisecond;
};
LocalTime localTime() noexcept;

/// Tests only: the tick counter, and with it every wait, runs `factor` times as fast as real time.
void setTestScale(uint32_t factor) noexcept;
/// Tests only: localTime() answers this until null is given.
void setTestLocalTime(const LocalTime* time) noexcept;

} // namespace brisolt::clock

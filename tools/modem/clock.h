// The one clock of a simulator. Its time may run faster than ours, so that a minute of ringing is over in a
// second; every time of this folder that is not called real is time of this clock.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

namespace simulated {

using Milliseconds = std::chrono::milliseconds;

/// No moment at all.
constexpr Milliseconds never = Milliseconds::max();

class Clock {
public:
    explicit Clock(int scale) : scale_(std::max(scale, 1)) {}

    Milliseconds now() const { return std::chrono::floor<Milliseconds>((Real::now() - start_) * scale_); }
    /// For a poll: real milliseconds until then, rounded up; -1 for never.
    int realMillisecondsTo(Milliseconds moment) const {
        if (moment == never)
            return -1;
        const auto left = std::max<long long>((moment - now()).count(), 0);
        return static_cast<int>(std::min<long long>((left + scale_ - 1) / scale_, INT_MAX));
    }
    int scale() const { return scale_; }

private:
    using Real = std::chrono::steady_clock;
    int scale_;
    Real::time_point start_ = Real::now();
};

/// A moment that something waits for.
struct Timer {
    Milliseconds due = never;

    void start(Milliseconds now, Milliseconds after) { due = now + after; }
    void stop() { due = never; }
    bool runs() const { return due != never; }
    bool over(Milliseconds now) const { return due <= now; }
};

} // namespace simulated

#include "platform/clock.h"
#include "platform/mutex.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <limits>
#include <optional>

namespace brisolt::clock {

using std::chrono::steady_clock;

namespace {

constexpr int64_t perMillisecond = 1'000'000;
constexpr int64_t perSecond = 1'000'000'000;

int64_t realNanoseconds() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * perSecond + now.tv_nsec;
}

// The scaled time since the last change of the scale is added to the scaled time at that change, so the
// tick counter neither jumps nor runs backwards when a test changes the scale in the middle.
struct Scale {
    int64_t factor = 1;
    int64_t realBase = 0;
    int64_t scaledBase = 0;

    int64_t scaled(int64_t real) const noexcept { return scaledBase + (real - realBase) * factor; }
};

Mutex testMutex;
Scale scale GUARDED_BY(testMutex);
std::atomic<bool> scaleInUse{false};
std::optional<LocalTime> testLocalTime GUARDED_BY(testMutex);
std::atomic<bool> testLocalTimeInUse{false};

// Real time that `milliseconds` ticks take, rounded up: whoever waits it out sees all the ticks pass.
int64_t realDuration(uint32_t milliseconds) noexcept {
    int64_t duration = milliseconds * perMillisecond;
    if (!scaleInUse.load(std::memory_order_relaxed))
        return duration;
    MutexLock lock(testMutex);
    return (duration + scale.factor - 1) / scale.factor;
}

} // namespace

uint32_t ticks() noexcept {
    if (!scaleInUse.load(std::memory_order_relaxed))
        return static_cast<uint32_t>(realNanoseconds() / perMillisecond);
    MutexLock lock(testMutex);
    return static_cast<uint32_t>(scale.scaled(realNanoseconds()) / perMillisecond);
}

Deadline Deadline::never() noexcept {
    return at(steady_clock::time_point::max());
}

Deadline Deadline::in(uint32_t milliseconds) noexcept {
    // All ones stands for "no limit" wherever a time-out is given.
    if (milliseconds == std::numeric_limits<uint32_t>::max())
        return never();
    return at(steady_clock::now() + std::chrono::nanoseconds(realDuration(milliseconds)));
}

Deadline Deadline::at(steady_clock::time_point moment) noexcept {
    Deadline deadline;
    deadline.moment_ = moment;
    return deadline;
}

bool Deadline::passed() const noexcept {
    return !isNever() && steady_clock::now() >= moment_;
}

bool Deadline::isNever() const noexcept {
    return moment_ == steady_clock::time_point::max();
}

int32_t Deadline::realMillisecondsLeft() const noexcept {
    if (isNever())
        return -1;
    auto now = steady_clock::now();
    if (moment_ <= now)
        return 0;
    auto left = std::chrono::ceil<std::chrono::milliseconds>(moment_ - now).count();
    return static_cast<int32_t>(std::min<int64_t>(left, std::numeric_limits<int32_t>::max()));
}

Deadline Deadline::earlier(Deadline a, Deadline b) noexcept {
    return a.moment_ <= b.moment_ ? a : b;
}

void sleep(uint32_t milliseconds) noexcept {
    int64_t end = realNanoseconds() + realDuration(milliseconds);
    timespec until{};
    until.tv_sec = static_cast<time_t>(end / perSecond);
    until.tv_nsec = static_cast<long>(end % perSecond);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
}

LocalTime localTime() noexcept {
    if (testLocalTimeInUse.load(std::memory_order_relaxed)) {
        MutexLock lock(testMutex);
        if (testLocalTime)
            return *testLocalTime;
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    localtime_r(&now.tv_sec, &parts);
    return {parts.tm_year + 1900,
            parts.tm_mon + 1,
            parts.tm_mday,
            parts.tm_hour,
            parts.tm_min,
            parts.tm_sec,
            static_cast<int32_t>(now.tv_nsec / perMillisecond)};
}

void setTestScale(uint32_t factor) noexcept {
    MutexLock lock(testMutex);
    int64_t now = realNanoseconds();
    int64_t scaledNow = scaleInUse ? scale.scaled(now) : now;
    scale = {std::max<int64_t>(factor, 1), now, scaledNow};
    scaleInUse = true;
}

void setTestLocalTime(const LocalTime* time) noexcept {
    MutexLock lock(testMutex);
    testLocalTime = time ? std::optional(*time) : std::nullopt;
    testLocalTimeInUse = time != nullptr;
}

} // namespace brisolt::clock

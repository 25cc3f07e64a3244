// Where the host fails to wait, whoever waits would look again and again without a pause. Everything in here
// that waits stops for a moment instead.
#pragma once

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace brisolt {

/// How long a sleep may last that nobody can end, in real milliseconds.
inline constexpr int32_t blindWait = 20;

/// The time that a wait may sleep that nobody can end (-1: no limit).
inline int32_t blindly(int32_t realMilliseconds) noexcept {
    return realMilliseconds < 0 || realMilliseconds > blindWait ? blindWait : realMilliseconds;
}

inline void brake(int32_t realMilliseconds) noexcept {
    timespec time{.tv_sec = 0, .tv_nsec = blindly(realMilliseconds) * 1'000'000L};
    nanosleep(&time, nullptr);
}

/// After a wait of the host that has failed, before anything else can change errno.
inline void brakeUnlessInterrupted(int32_t realMilliseconds) noexcept {
    if (errno != EINTR)
        brake(realMilliseconds);
}

} // namespace brisolt

// Time in tests: the library's runs faster or stands still, and a wait ends when what it waits for has come.
#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

#include <time.h>

#include "platform/clock.h"

namespace brisolt::test {

/// Lets the library's time run faster: with 50 the 0.6 s of a close pass in 12 ms.
struct FastClock {
    explicit FastClock(uint32_t factor = 50) { clock::setTestScale(factor); }
    ~FastClock() { clock::setTestScale(1); }
    FastClock(const FastClock&) = delete;
    FastClock& operator=(const FastClock&) = delete;
};

/// The date and time of day stand still.
struct Moment {
    explicit Moment(const clock::LocalTime& time) { clock::setTestLocalTime(&time); }
    ~Moment() { clock::setTestLocalTime(nullptr); }
    Moment(const Moment&) = delete;
    Moment& operator=(const Moment&) = delete;
};

/// Whether something becomes true; with a limit that only a fault reaches.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

inline std::chrono::nanoseconds processorTime(clockid_t whose) {
    timespec used{};
    clock_gettime(whose, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// Processor time that a call uses, of its thread or of the whole process.
template <class Call> std::chrono::nanoseconds processorTimeOf(clockid_t whose, Call call) {
    const auto before = processorTime(whose);
    call();
    return processorTime(whose) - before;
}

} // namespace brisolt::test

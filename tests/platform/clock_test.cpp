#include "platform/clock.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/time.h>

using namespace brisolt;

TEST(Clock, DeadlinesTellTheRealTimeThatIsLeft) {
    // Rounded up: a poll with what is left must not end before the deadline.
    const auto now = std::chrono::steady_clock::now();
    const auto soon = clock::Deadline::at(now + std::chrono::microseconds(300));
    EXPECT_TRUE(soon.realMillisecondsLeft() == 1 || soon.passed());
    EXPECT_EQ(clock::Deadline::at(now + std::chrono::hours(24 * 365)).realMillisecondsLeft(), INT32_MAX);
    EXPECT_TRUE(clock::Deadline::in(UINT32_MAX).isNever());
}

TEST(Clock, SignalsDoNotEndASleep) {
    static volatile std::sig_atomic_t signals = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { signals = signals + 1; };
    sigaction(SIGALRM, &action, nullptr);
    itimerval every{{0, 5000}, {0, 5000}};
    setitimer(ITIMER_REAL, &every, nullptr);
    uint32_t start = clock::ticks();
    clock::sleep(100);
    EXPECT_GE(clock::ticks() - start, 100u);
    itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    EXPECT_GT(signals, 0);
}

TEST(Clock, LocalTimeFollowsTheTimeZone) {
    setenv("TZ", "XXX-05:30", 1);
    tzset();
    clock::LocalTime local{};
    time_t utc = 0;
    do { // again when a second begins in between
        utc = time(nullptr);
        local = clock::localTime();
    } while (time(nullptr) != utc);
    tm shifted{};
    time_t there = utc + 5 * 3600 + 30 * 60;
    gmtime_r(&there, &shifted);
    EXPECT_EQ(std::tuple(local.year, local.month, local.day, local.hour * 60 + local.minute),
              std::tuple(shifted.tm_year + 1900, shifted.tm_mon + 1, shifted.tm_mday,
                         shifted.tm_hour * 60 + shifted.tm_min));
}

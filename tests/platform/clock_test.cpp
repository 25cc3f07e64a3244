#include "platform/clock.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <limits>

#include <gtest/gtest.h>
#include <sys/time.h>

using namespace brisolt;

namespace {

struct Clock : testing::Test {
    ~Clock() override {
        clock::setTestScale(1);
        clock::setTestLocalTime(nullptr);
    }
};

} // namespace

TEST_F(Clock, TicksStayContinuousWhenTheScaleChanges) {
    uint32_t last = clock::ticks();
    for (uint32_t factor : {1000u, 1u, 0u, 500u, 1u}) {
        clock::setTestScale(factor);
        uint32_t now = clock::ticks();
        // A jump would be the machine's whole time since its start, many times over.
        EXPECT_LT(now - last, 30u * 60 * 1000) << factor;
        last = now;
    }
}

TEST_F(Clock, ScaledWaitsAreShortInRealTimeAndWholeInTicks) {
    clock::setTestScale(1000);
    auto realStart = std::chrono::steady_clock::now();
    uint32_t start = clock::ticks();
    clock::sleep(60'000);
    EXPECT_GE(clock::ticks() - start, 60'000u);

    start = clock::ticks();
    auto deadline = clock::Deadline::in(30'001);
    while (!deadline.passed()) {
    }
    EXPECT_GE(clock::ticks() - start, 30'001u);
    EXPECT_LT(std::chrono::steady_clock::now() - realStart, std::chrono::seconds(60));
}

TEST_F(Clock, DeadlinesTellTheRealTimeThatIsLeft) {
    EXPECT_EQ(clock::Deadline::never().realMillisecondsLeft(), -1);
    EXPECT_FALSE(clock::Deadline::never().passed());
    EXPECT_TRUE(clock::Deadline::in(std::numeric_limits<uint32_t>::max()).isNever());
    EXPECT_EQ(clock::Deadline().realMillisecondsLeft(), 0);
    EXPECT_TRUE(clock::Deadline::in(0).passed());

    // Rounded up: a poll with what is left must not end before the deadline.
    auto now = std::chrono::steady_clock::now();
    EXPECT_GT(clock::Deadline::at(now + std::chrono::hours(1)).realMillisecondsLeft(), 3'000'000);
    auto soon = clock::Deadline::at(std::chrono::steady_clock::now() + std::chrono::microseconds(300));
    int32_t left = soon.realMillisecondsLeft();
    EXPECT_TRUE(left == 1 || soon.passed());
    EXPECT_EQ(clock::Deadline::at(now + std::chrono::hours(24 * 365)).realMillisecondsLeft(),
              std::numeric_limits<int32_t>::max());

    auto early = clock::Deadline::in(10);
    EXPECT_EQ(clock::Deadline::earlier(clock::Deadline::never(), early).moment(), early.moment());
}

TEST_F(Clock, SignalsDoNotEndASleep) {
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

TEST_F(Clock, LocalTimeFollowsTheTimeZoneAndTheHook) {
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
    EXPECT_EQ(local.hour * 60 + local.minute, shifted.tm_hour * 60 + shifted.tm_min);
    EXPECT_EQ(local.day, shifted.tm_mday);
    EXPECT_EQ(local.month, shifted.tm_mon + 1);
    EXPECT_EQ(local.year, shifted.tm_year + 1900);

    clock::LocalTime fixed{1999, 12, 31, 23, 59, 58, 997};
    clock::setTestLocalTime(&fixed);
    fixed.year = 0; // the hook keeps a copy
    EXPECT_EQ(clock::localTime().year, 1999);
    EXPECT_EQ(clock::localTime().millisecond, 997);
}

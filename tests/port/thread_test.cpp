// When the I/O thread runs its rounds: suspension, pace, and the sleep of a port on which nothing happens.
#include <future>

#include <sys/resource.h>

#include <gtest/gtest.h>

#include "port/ports.h"
#include "support/pty.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;
using Call = ScriptedDriver::Call;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

void sleepFor(int32_t time) {
    std::this_thread::sleep_for(milliseconds(time));
}

/// Time measured against the clock, hence alone.
class IoThreadAlone : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(openOn(5, driver.path()), 5);
        ComSetBackgroundTimeout(5, 0);
    }
    void TearDown() override { ComClose(5); }
    static PortRecord& record() { return recordOf(5); }
    static bool waitForHead(int32_t head) {
        return eventually([=] { return record().rxHead == head; });
    }

    ScriptedDriver driver;
};

TEST_F(IoThreadAlone, ASuspensionHoldsBothDirectionsAndEndsByItself) {
    ComSuspendPortWriteThru(5);
    const auto start = Clock::now();
    EXPECT_EQ(ComSuspend(5), 1);
    driver.feed("in");
    EXPECT_EQ(send(5, "out"), 3);
    sleepFor(200);
    const bool moved = record().rxHead != 0 || !driver.written().empty();
    if (Clock::now() - start < milliseconds(450)) {
        EXPECT_FALSE(moved);
    }
    EXPECT_TRUE(waitForHead(2));
    EXPECT_GE(Clock::now() - start, milliseconds(450));
    EXPECT_TRUE(eventually([&] { return driver.written() == "out"; }));
    EXPECT_EQ(record().suspended, 0);

    // A suspension that is too far off to be real is none.
    record().suspendUntil = clock::ticks() + 100'000;
    record().suspended = 1;
    driver.feed("more");
    EXPECT_TRUE(waitForHead(6));
}

TEST_F(IoThreadAlone, ResumeEndsASuspensionAtOnce) {
    const auto start = Clock::now();
    for (int32_t turn = 1; turn <= 5; ++turn) { // each would last half a second
        EXPECT_EQ(ComSuspend(5), 1);
        driver.feed("x");
        EXPECT_EQ(ComResume(5), 1);
        EXPECT_TRUE(waitForHead(turn));
    }
    EXPECT_LT(Clock::now() - start, milliseconds(2000));
    EXPECT_EQ(record().suspendUntil, 0U);
}

TEST_F(IoThreadAlone, ALongPaceHoldsBackRoundsButNoCallerAndNoClose) {
    driver.feed("a");
    EXPECT_TRUE(waitForHead(1));
    ComSetBackgroundTimeout(5, 10'000);
    driver.feed("b");
    sleepFor(200);
    EXPECT_EQ(record().rxHead, 1) << "the pace is the least pause between two rounds";
    EXPECT_EQ(receive(5, 1), "a");
    EXPECT_EQ(ComStatus(5), 1) << "on an empty ring the device itself is asked";
    EXPECT_EQ(receive(5, 1), "b");

    driver.feed("d");
    sleepFor(50);
    const auto start = Clock::now();
    ComSetBackgroundTimeout(5, 1);
    EXPECT_TRUE(eventually([] { return record().rxHead != 0; }));
    EXPECT_LT(Clock::now() - start, milliseconds(5000)) << "a new pace takes effect at once";

    ComSetBackgroundTimeout(5, 10'000);
    driver.feed("e");
    sleepFor(50);
    const auto closing = Clock::now();
    EXPECT_EQ(ComClose(5), 1);
    EXPECT_LT(Clock::now() - closing, milliseconds(4000));
}

/// How often the threads of this process have gone to sleep so far.
int64_t sleeps() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

TEST_F(IoThreadAlone, AnIdlePortLeavesItsDeviceAloneAndSleeps) {
    const Pty pty;
    ASSERT_EQ(openOn(6, pty.slavePath()), 6);
    for (const uint32_t pace : {0U, 50U}) {
        ComSetBackgroundTimeout(5, pace);
        ComSetBackgroundTimeout(6, pace);
        // Somebody has used the port before, and has left.
        driver.feed("x");
        std::string bytes(2, '\0');
        EXPECT_EQ(ComReadTimed(5, bytes.data(), 2, 11), 1);
        EXPECT_EQ(send(5, "y"), 1);
        sleepFor(500);
        driver.forgetCalls();
        [[maybe_unused]] const int64_t before = sleeps();
        sleepFor(500);
        EXPECT_EQ(driver.total(), 0) << "pace " << pace;
#if !defined(__SANITIZE_THREAD__)        // which has a thread of its own
        EXPECT_LE(sleeps() - before, 3); // this thread's own; another may only now have come to rest
#endif
    }
    // It is awake for the next byte all the same.
    driver.feed("z");
    EXPECT_TRUE(waitForHead(1));
    EXPECT_EQ(ComClose(6), 1);
}

} // namespace

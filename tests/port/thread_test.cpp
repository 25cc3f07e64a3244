// When the I/O thread runs its rounds: suspension, pace, and the sleep of a port on which nothing happens.
#include "support/open_port.h"
#include "support/scripted_driver.h"

namespace brisolt::test {
namespace {

using std::this_thread::sleep_for;

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
    const auto start = SteadyClock::now();
    EXPECT_EQ(ComSuspend(5), 1);
    driver.feed("in");
    EXPECT_EQ(send(5, "out"), 3);
    sleep_for(200ms);
    const bool moved = record().rxHead != 0 || !driver.written().empty();
    EXPECT_TRUE(!moved || SteadyClock::now() - start >= 450ms);
    EXPECT_TRUE(waitForHead(2));
    EXPECT_GE(SteadyClock::now() - start, 450ms);
    EXPECT_TRUE(eventually([&] { return driver.written() == "out"; }));
    EXPECT_EQ(record().suspended, 0);

    // A suspension that is too far off to be real is none.
    record().suspendUntil = clock::ticks() + 100'000;
    record().suspended = 1;
    driver.feed("more");
    EXPECT_TRUE(waitForHead(6));

    // And a resume ends one at once.
    const auto resuming = SteadyClock::now();
    for (int32_t turn = 1; turn <= 5; ++turn) { // each would last half a second
        EXPECT_EQ(ComSuspend(5), 1);
        driver.feed("x");
        EXPECT_EQ(ComResume(5), 1);
        EXPECT_TRUE(waitForHead(6 + turn));
    }
    EXPECT_LT(SteadyClock::now() - resuming, 2000ms);
    EXPECT_EQ(record().suspendUntil, 0U);
}

TEST_F(IoThreadAlone, ALongPaceHoldsBackRoundsButNoCallerAndNoClose) {
    driver.feed("a");
    EXPECT_TRUE(waitForHead(1));
    ComSetBackgroundTimeout(5, 10'000);
    driver.feed("b");
    sleep_for(200ms);
    EXPECT_EQ(record().rxHead, 1) << "the pace is the least pause between two rounds";
    EXPECT_EQ(receive(5, 1), "a");
    EXPECT_EQ(ComStatus(5), 1) << "on an empty ring the device itself is asked";
    EXPECT_EQ(receive(5, 1), "b");

    driver.feed("d");
    sleep_for(50ms);
    const auto start = SteadyClock::now();
    ComSetBackgroundTimeout(5, 1);
    EXPECT_TRUE(eventually([] { return record().rxHead != 0; }));
    EXPECT_LT(SteadyClock::now() - start, 5s) << "a new pace takes effect at once";

    ComSetBackgroundTimeout(5, 10'000);
    driver.feed("e");
    sleep_for(50ms);
    const auto closing = SteadyClock::now();
    EXPECT_EQ(ComClose(5), 1);
    EXPECT_LT(SteadyClock::now() - closing, 4s);
}

TEST_F(IoThreadAlone, AnIdlePortLeavesItsDeviceAlone) {
    for (const uint32_t pace : {0U, 50U}) {
        ComSetBackgroundTimeout(5, pace);
        // Somebody has used the port before, and has left.
        driver.feed("x");
        EXPECT_EQ(readTimed(5, 2, 11), "x");
        EXPECT_EQ(send(5, "y"), 1);
        sleepHalfASecond();
        driver.forgetCalls();
        sleepHalfASecond();
        EXPECT_EQ(driver.total(), 0) << "pace " << pace;
    }
    // It is awake for the next byte all the same.
    driver.feed("z");
    EXPECT_TRUE(waitForHead(1));
}

} // namespace
} // namespace brisolt::test

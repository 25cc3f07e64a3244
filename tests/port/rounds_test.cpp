// What rounds move between the rings and the device, and what becomes of bytes that one of them does not
// take.
#include <future>
#include <random>

#include "support/open_port.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;
using Call = ScriptedDriver::Call;

namespace {

constexpr int32_t ringSize = 2048;

class Rounds : public testing::Test {
protected:
    void SetUp() override { reopen("COM"); }
    void TearDown() override { ComClose(5); }
    void reopen(const char* name) {
        ComClose(5);
        ASSERT_EQ(openOn(5, driver.path(), name), 5);
        ComSetBackgroundTimeout(5, 0);
        driver.forgetCalls();
    }
    static PortRecord& record() { return recordOf(5); }
    /// No round is going on and nothing is left to send.
    static bool allSent() {
        const HeldPort port(5);
        const HeldLock lock(*port);
        return port->tx.empty();
    }
    /// Queues bytes with the thread held back, so that its rounds find all of them, and lets it send them.
    void queueAll(const std::string& bytes) {
        ComSuspendPortWriteThru(5);
        EXPECT_TRUE(eventually([&] {
            driver.forgetCalls();
            EXPECT_EQ(ComSuspend(5), 1);
            EXPECT_EQ(send(5, bytes), static_cast<int32_t>(bytes.size()));
            // On a slow machine the suspension may have ended under the bytes.
            const bool held = ComOutBufStatus(5) >= static_cast<int32_t>(bytes.size());
            ComResume(5);
            return eventually(allSent) && held;
        }));
    }
    FastClock fast;
    ScriptedDriver driver;
};

TEST_F(Rounds, InDirectModeEachCallRunsOne) {
    reopen("THUNK");
    ComSuspendPortWriteThru(5);
    EXPECT_EQ(send(5, pattern(2000)), 2000);
    EXPECT_EQ(driver.count(Call::write), 0);
    driver.feed("ab");
    EXPECT_EQ(ComStatus(5), 2);
    EXPECT_EQ(driver.writeSizes(), (std::vector{1024}));
    EXPECT_EQ(ComOutBufStatus(5), 976);
    driver.setOutQueue(20);
    EXPECT_EQ(ComOutBufStatus(5), 996);
    EXPECT_EQ(receive(5, 2), "ab");
    EXPECT_EQ(driver.writeSizes(), (std::vector{1024, 976}));
    EXPECT_EQ(driver.written(), pattern(2000));

    // What is to be replaced is, in the same call that takes it off the device.
    EXPECT_EQ(ComReplace_Incoming_Char(5, 1, 'b', 'x'), 1);
    driver.feed("banana");
    EXPECT_EQ(readUpTo(5, 6), "xanana");

    // A wait moves bytes both ways.
    EXPECT_EQ(send(5, "queued"), 6);
    auto wait = std::async(std::launch::async, readTimed, 5, 7, 100'000);
    EXPECT_TRUE(eventually([&] { return driver.written().ends_with("queued"); }));
    driver.feed("awaited");
    EXPECT_EQ(wait.get(), "awaited");
}

TEST_F(Rounds, BytesThatTheDeviceDoesNotTakeAreGoneAndLogged) {
    const LogFile trace, silent;
    ComSetPortDebugFile(5, trace.path().c_str());
    driver.takeAtMost(10);
    queueAll(pattern(100));
    EXPECT_EQ(driver.written(), pattern(10));
    EXPECT_EQ(trace.entries({"ERROR: bytes written=10 intended=100 "}).size(), 1U) << trace.text();

    driver.refuse(Call::write, 1);
    queueAll(pattern(50));
    EXPECT_EQ(driver.written(), "");
    EXPECT_NE(trace.text().find("Write error: 5"), std::string::npos);
    EXPECT_NE(trace.text().find("ERROR: bytes written=0 intended=50 wsuccess=0 LastError=5"),
              std::string::npos);

    ComResumePortWriteThru(5);
    driver.forgetCalls();
    EXPECT_EQ(send(5, "straight to the device"), 10);
    EXPECT_EQ(driver.written(), "straight t");
    EXPECT_EQ(ComOutBufStatus(5), 0);

    // A block for which the device has no room goes in silence.
    driver.takeAtMost(ScriptedDriver::always);
    driver.setOutQueue(1000);
    ComSetPortDebugFile(5, silent.path().c_str());
    queueAll(pattern(25));
    EXPECT_EQ(driver.count(Call::write), 0);
    EXPECT_EQ(silent.entries({"Writing"}), std::vector<std::string>{"Writing 25 characters"});
    queueAll(pattern(24));
    EXPECT_EQ(driver.written(), pattern(24));
}

TEST_F(Rounds, LosslessPortsLoseNothingWhateverTheDeviceTakes) {
    EXPECT_EQ(ComHostSetLossless(5, 1), 1);
    driver.limitRoom(0);
    const std::string sent = pattern(200'000);
    std::atomic<bool> stop{false};
    auto line = std::async(std::launch::async, [&] {
        std::minstd_rand random(1);
        while (!stop) {
            driver.takeAtMost(1 + static_cast<int32_t>(random() % 700));
            driver.grant(static_cast<int64_t>(random() % 3000));
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        }
    });
    std::minstd_rand random(2);
    std::size_t done = 0;
    EXPECT_TRUE(eventually([&] {
        done += static_cast<std::size_t>(send(5, sent.substr(done, 1 + random() % 3000)));
        return done == sent.size();
    }));
    EXPECT_TRUE(eventually([&] { return ComOutBufStatus(5) == 0; }));
    stop = true;
    line.wait();
    EXPECT_TRUE(driver.written() == sent) << driver.written().size();

    // And nobody asks a device again and again that has no room.
    driver.limitRoom(0);
    EXPECT_EQ(send(5, "waiting"), 7);
    std::this_thread::sleep_for(50ms);
    driver.forgetCalls();
    std::this_thread::sleep_for(200ms);
    EXPECT_LT(driver.total(), 10);
    driver.grant(100);
    EXPECT_TRUE(eventually([&] { return driver.written() == "waiting"; }));
}

TEST_F(Rounds, AFullRingLeavesTheRestInTheDeviceAndSleeps) {
    const auto expectSleep = [&](std::size_t unread) {
        EXPECT_TRUE(eventually([&] { return driver.unread() == unread; }));
        // Nor does a caller who waits for more than the ring can hold keep anybody busy.
        std::string bytes(4001, '\0');
        auto wait = std::async(std::launch::async, ComReadBufToQuiet, 5, bytes.data(), 4001, 30'000);
        std::this_thread::sleep_for(50ms);
        driver.forgetCalls();
        std::this_thread::sleep_for(200ms);
        EXPECT_LT(driver.total(), 10);
        EXPECT_EQ(ComCancel(5), 1);
        EXPECT_EQ(wait.get(), -1);
    };
    const std::string sent = pattern(5000);
    driver.readAtMost(700);
    driver.refuse(Call::read, 3);
    driver.feed(sent);
    expectSleep(5000 - ringSize);
    EXPECT_EQ(record().rxTail, 0);
    EXPECT_EQ(record().rxHead, ringSize);
    EXPECT_EQ(receive(5, 1000), sent.substr(0, 1000));
    expectSleep(5000 - ringSize); // it goes on when all has been read
    EXPECT_EQ(receive(5, 4000), sent.substr(1000));

    record().rxTail = 1000;
    record().rxHead = 1000;
    driver.feed(sent);
    expectSleep(5000 - (ringSize - 1)); // behind the reader one place stays free
    EXPECT_EQ(record().rxTail, 1000);
    EXPECT_EQ(record().rxHead, 999);
    EXPECT_EQ(receive(5, 5000), sent);
}

// What cannot be waited for is looked at now and then; a wait that fails must not keep anybody running either.
TEST_F(Rounds, WorkWithADriverThatCannotWait) {
    clock::setTestScale(1);
    for (const auto waits : {ScriptedDriver::Waits::no, ScriptedDriver::Waits::yes}) {
        ScriptedDriver blind("scripted-blind", waits);
        blind.refuse(Call::wait);
        ASSERT_EQ(openOn(6, blind.path()), 6);
        ComSetBackgroundTimeout(6, 0);
        blind.feed(pattern(3000));
        EXPECT_EQ(receive(6, 3000), pattern(3000));
        blind.forgetCalls();
        const auto idle = [] {
            EXPECT_EQ(readTimed(6, 4, 50), "");
            std::this_thread::sleep_for(200ms);
        };
        EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, idle), 200ms);
        EXPECT_GT(blind.count(Call::read), 10);
        auto wait = std::async(std::launch::async, readTimed, 6, 4, 2000);
        std::this_thread::sleep_for(20ms);
        blind.feed("late");
        EXPECT_EQ(wait.get(), "late");
        ComSuspendPortWriteThru(6);
        EXPECT_EQ(send(6, pattern(1500)), 1500);
        EXPECT_TRUE(eventually([&] { return blind.written() == pattern(1500); }));
        EXPECT_EQ(ComHostSetLossless(6, 1), 1);
        blind.limitRoom(3);
        EXPECT_EQ(send(6, "held"), 4);
        blind.grant(10);
        EXPECT_TRUE(eventually([&] { return blind.written().ends_with("held"); }));
        EXPECT_EQ(ComClose(6), 1);
    }
}

} // namespace

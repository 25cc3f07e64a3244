// What rounds move between the rings and the device, and what becomes of bytes that one of them does not
// take.
#include <future>
#include <random>

#include <gtest/gtest.h>

#include "port/port_table.h"
#include "port/ports.h"
#include "support/files.h"
#include "support/pattern.h"
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
    static bool positions(const Shared<int32_t>& tail, int32_t t, const Shared<int32_t>& head, int32_t h) {
        return tail == t && head == h;
    }
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
    const FastClock fast;
    const Files files;
    ScriptedDriver driver;
};

// ---- Sending -----------------------------------------------------------------------------------------

TEST_F(Rounds, SendOneBlockEach) {
    ComClose(5);
    ASSERT_EQ(ComOpen("COM", 5, 9600, 8, 1, 1, 2048, 4096), 5);
    ComSetBackgroundTimeout(5, 0);
    queueAll(pattern(3000));
    EXPECT_EQ(driver.writeSizes(), (std::vector{1024, 1024, 952}));
    EXPECT_EQ(driver.written(), pattern(3000));

    // Of a wrapped ring the end goes first.
    record().txTail = 4000;
    record().txHead = 4000;
    ComSetPortMaxWriteChars(5, 300);
    queueAll(pattern(500));
    EXPECT_EQ(driver.writeSizes(), (std::vector{96, 300, 104}));
    EXPECT_EQ(driver.written(), pattern(500));
}

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
    std::string fruit(6, '\0');
    driver.feed("banana");
    EXPECT_EQ(ComRead(5, fruit.data(), 6), 6);
    EXPECT_EQ(fruit, "xanana");

    // A wait moves bytes both ways.
    EXPECT_EQ(send(5, "queued"), 6);
    std::string bytes(7, '\0');
    auto wait = std::async(std::launch::async, ComReadTimed, 5, bytes.data(), 7, 100'000);
    EXPECT_TRUE(eventually([&] { return driver.written().ends_with("queued"); }));
    driver.feed("awaited");
    EXPECT_EQ(wait.get(), 7);
    EXPECT_EQ(bytes, "awaited");
}

TEST_F(Rounds, BytesThatTheDeviceDoesNotTakeAreGoneAndLogged) {
    ComSetPortDebugFile(5, files.path("trace").c_str());
    driver.takeAtMost(10);
    queueAll(pattern(100));
    EXPECT_EQ(driver.written(), pattern(10));
    EXPECT_NE(files.bytes("trace").find("ERROR: bytes written=10 intended=100 "), std::string::npos);

    driver.refuse(Call::write, 1);
    queueAll(pattern(50));
    EXPECT_EQ(driver.written(), "");
    EXPECT_NE(files.bytes("trace").find("Write error: 5"), std::string::npos);
    EXPECT_NE(files.bytes("trace").find("ERROR: bytes written=0 intended=50 wsuccess=0 LastError=5"),
              std::string::npos);

    ComResumePortWriteThru(5);
    driver.forgetCalls();
    EXPECT_EQ(send(5, "straight to the device"), 10);
    EXPECT_EQ(driver.written(), "straight t");
    EXPECT_EQ(ComOutBufStatus(5), 0);

    // A block for which the device has no room goes in silence.
    driver.takeAtMost(ScriptedDriver::always);
    driver.setOutQueue(1000);
    ComSetPortDebugFile(5, files.path("silent").c_str());
    queueAll(pattern(25));
    EXPECT_EQ(driver.count(Call::write), 0);
    EXPECT_EQ(files.bytes("silent").find("Writing to port"), std::string::npos);
    EXPECT_NE(files.bytes("silent").find("Writing 25 characters"), std::string::npos);
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
        for (int32_t taken = 1; taken > 0 && done < sent.size(); done += static_cast<std::size_t>(taken))
            taken = send(5, sent.substr(done, 1 + random() % 3000));
        return done == sent.size();
    }));
    EXPECT_TRUE(eventually([&] { return ComOutBufStatus(5) == 0; }));
    stop = true;
    line.wait();
    EXPECT_TRUE(driver.written() == sent) << driver.written().size();

    // And nobody asks a device again and again that has no room.
    driver.limitRoom(0);
    EXPECT_EQ(send(5, "waiting"), 7);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    driver.forgetCalls();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(driver.total(), 10);
    driver.grant(100);
    EXPECT_TRUE(eventually([&] { return driver.written() == "waiting"; }));

    // Nor one that says it has room and then refuses.
    driver.refuse(Call::write);
    EXPECT_EQ(send(5, "refused"), 7);
    driver.forgetCalls();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(driver.count(Call::write), 2000);
    driver.refuse(Call::write, 0);
    EXPECT_TRUE(eventually([&] { return driver.written() == "refused"; }));
}

// ---- Receiving -----------------------------------------------------------------------------------------

TEST_F(Rounds, PositionsMoveByWhatWasDelivered) {
    driver.readAtMost(7);
    driver.feed(pattern(100));
    EXPECT_TRUE(eventually([&] { return positions(record().rxTail, 0, record().rxHead, 100); }));
    driver.refuse(Call::read, 3);
    driver.feed(pattern(20));
    EXPECT_TRUE(eventually([&] { return record().rxHead == 120; }));
    EXPECT_EQ(receive(5, 120), pattern(100) + pattern(20));
}

TEST_F(Rounds, AFullRingLeavesTheRestInTheDeviceAndSleeps) {
    const auto expectSleep = [&](std::size_t unread) {
        EXPECT_TRUE(eventually([&] { return driver.unread() == unread; }));
        // Nor does a caller who waits for more than the ring can hold keep anybody busy.
        std::string bytes(4001, '\0');
        auto wait = std::async(std::launch::async, ComReadBufToQuiet, 5, bytes.data(), 4001, 30'000);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        driver.forgetCalls();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_LT(driver.total(), 10);
        EXPECT_EQ(ComCancel(5), 1);
        EXPECT_EQ(wait.get(), -1);
    };
    const std::string sent = pattern(5000);
    driver.feed(sent);
    expectSleep(5000 - ringSize);
    EXPECT_TRUE(positions(record().rxTail, 0, record().rxHead, ringSize));
    EXPECT_EQ(receive(5, 1000), sent.substr(0, 1000));
    expectSleep(5000 - ringSize); // it goes on when all has been read
    EXPECT_EQ(receive(5, 4000), sent.substr(1000));

    record().rxTail = 1000;
    record().rxHead = 1000;
    driver.feed(sent);
    expectSleep(5000 - (ringSize - 1)); // behind the reader one place stays free
    EXPECT_TRUE(positions(record().rxTail, 1000, record().rxHead, 999));
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
        std::string bytes(4, '\0');
        const auto idle = [&] {
            EXPECT_EQ(ComReadTimed(6, bytes.data(), 4, 50), 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        };
        EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, idle), std::chrono::milliseconds(200));
        EXPECT_GT(blind.count(Call::read), 10);
        auto wait = std::async(std::launch::async, ComReadTimed, 6, bytes.data(), 4, 2000);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        blind.feed("late");
        EXPECT_EQ(wait.get(), 4);
        EXPECT_EQ(bytes, "late");
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

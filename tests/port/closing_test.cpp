// A port that closes under those who use it: waits, writes, notifications, other closes, and the next life
// of the same number.
#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "port/ports.h"
#include "port/tracked_memory.h"
#include "support/pty.h"
#include "support/scripted_driver.h"
#include "support/temp_dir.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

constexpr auto async = std::launch::async;

bool isOpenDescriptor(int descriptor) {
    return fcntl(descriptor, F_GETFD) >= 0;
}

struct WaitCase {
    const char* name;
    std::function<int32_t(int32_t port)> run; ///< would take a minute of real time
};
const std::vector<WaitCase> waits{
    {"ComReadTimed",
     [](int32_t port) {
         char b[9];
         return ComReadTimed(port, b, 9, 300'000);
     }},
    {"ComReadBuf",
     [](int32_t port) {
         char b[9];
         return ComReadBuf(port, b, 0, 8, 3000);
     }},
    {"ComReadBufToQuiet",
     [](int32_t port) {
         char b[9];
         return ComReadBufToQuiet(port, b, 9, 30'000);
     }},
    {"ComSleep", [](int32_t port) { return ComSleep(port, 3000); }},
    {"ComSleepMS", [](int32_t port) { return ComSleepMS(port, 3'000'000); }},
    {"Com_Flush", [](int32_t port) { return Com_Flush(port, 3000); }},
    {"ComPuts", [](int32_t port) { return ComPuts(port, std::string(3000, '~').c_str()); }},
};

/// All of them at once on port 5.
class RunningWaits {
public:
    RunningWaits() {
        for (const WaitCase& wait : waits)
            results_.push_back(std::async(async, wait.run, 5));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        expectAll(std::future_status::timeout, std::chrono::seconds(0));
    }
    void expectClosed() {
        expectAll(std::future_status::ready, std::chrono::seconds(10));
        for (std::size_t i = 0; i < waits.size(); ++i)
            EXPECT_EQ(results_[i].get(), -1) << waits[i].name;
    }

private:
    void expectAll(std::future_status status, std::chrono::seconds limit) {
        for (std::size_t i = 0; i < waits.size(); ++i)
            EXPECT_EQ(results_[i].wait_for(limit), status) << waits[i].name;
    }

    std::vector<std::future<int32_t>> results_;
};

TEST(Closing, EndsEveryWaitAtOnceWithTheResultOfAClosedPort) {
    const FastClock fast;
    ScriptedDriver driver;
    for (const char* name : {"COM", "THUNK"})
        for (const int32_t yield : {1, 0}) {
            SCOPED_TRACE(testing::Message() << name << " yield " << yield);
            ASSERT_EQ(openOn(5, driver.path(), name), 5);
            ComSetYield(5, yield);
            RunningWaits running;
            EXPECT_EQ(ComClose(5), 1);
            running.expectClosed();
        }
}

TEST(Closing, TheNumberMayBeOpenedAgainWhileTheOldPortWindsUp) {
    const TempDir directory;
    const std::string trace = directory.file("trace");
    ScriptedDriver oldDriver("scripted-old");
    ScriptedDriver newDriver("scripted-new");
    ASSERT_EQ(openOn(5, oldDriver.path()), 5);
    ASSERT_NE(ComMalloc(5, 10), nullptr);
    ComSetYield(5, 0);
    RunningWaits running;
    auto closing = std::async(async, ComClose, 5);
    EXPECT_TRUE(eventually([&] { return openOn(5, newDriver.path()) == 5; }));
    void* const block = ComMalloc(5, 100);
    EXPECT_EQ(ComSetPortDebugFile(5, trace.c_str()), 1);
    const std::string sent = "bytes of the new life";
    newDriver.feed(sent);
    EXPECT_EQ(closing.get(), 1);

    running.expectClosed();
    EXPECT_TRUE(eventually([&] { return oldDriver.devices() == 0; }));
    EXPECT_EQ(ComOpenState(5), 1);
    EXPECT_EQ(tracked::outstanding(5), 1U) << "the old block is gone, the new one is not";
    EXPECT_EQ(ComFree(5, block), 0);
    EXPECT_EQ(recordOf(5).portDebugFileName, trace);
    EXPECT_EQ(receive(5, sent.size()), sent) << "nobody of the old life may take them";
    std::ifstream file(trace);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(text.find("Read:21 "), std::string::npos) << text;
    EXPECT_EQ(text.find("ComClose"), std::string::npos) << text;
    EXPECT_EQ(ComClose(5), 1);
}

std::atomic<int32_t> callbackResult;

TEST(Closing, ANotificationFunctionMayPreCloseItsOwnPort) {
    ScriptedDriver driver;
    ASSERT_EQ(openOn(5, driver.path()), 5);
    ComSetNotifyMessageOnAnyCharCallBackFunc(5,
                                             [](int32_t port) { return callbackResult = ComPreClose(port); });
    // Not a wait for bytes: that may take them off the device before a round can.
    auto wait = std::async(async, ComSleep, 5, 60);
    driver.feed("x");
    EXPECT_TRUE(eventually([] { return callbackResult == 1; }));
    EXPECT_TRUE(eventually([&] { return driver.devices() == 0; }));
    EXPECT_EQ(ComClose(5), -1);
    EXPECT_EQ(wait.get(), -1);
}

TEST(Closing, EndsAWriteThatThePeerHoldsOff) {
    const FastClock fast;
    ScriptedDriver driver;
    driver.holdCompleteWrites();
    for (const bool queued : {false, true}) {
        SCOPED_TRACE(queued ? "on the I/O thread" : "on the caller's thread");
        driver.limitRoom(0);
        ASSERT_EQ(openOn(5, driver.path()), 5);
        std::future<int32_t> write;
        if (queued) {
            ComSuspendPortWriteThru(5);
            EXPECT_EQ(send(5, std::string(100, 'x')), 100);
        } else {
            write = std::async(async, send, 5, std::string(100, 'x'));
        }
        EXPECT_TRUE(eventually([&] { return driver.inWrite(); }));
        auto reader = std::async(async, receive, 5, 1); // stands behind the write
        EXPECT_EQ(ComClose(5), 1);
        if (!queued) {
            EXPECT_EQ(write.get(), 0);
        }
        EXPECT_TRUE(eventually([&] { return driver.devices() == 0; }));
        ASSERT_EQ(openOn(5, driver.path()), 5);
        driver.feed("x");
        EXPECT_EQ(reader.get(), "x");
        EXPECT_EQ(ComClose(5), 1);
    }
}

TEST(Closing, EndsWritesOnRealLinesThatTakeNothing) {
    const FastClock fast;
    const Pty pty;
    for (const std::string& path : {pty.slavePath(), std::string("null-modem:held")}) {
        SCOPED_TRACE(path);
        ASSERT_EQ(openOn(5, path), 5);
        ComSetWriteTimeout(5, UINT32_MAX);
        if (path != pty.slavePath())
            ComSetFlow(5, 0); // nobody at the other end raises CTS
        std::atomic<int32_t> blocks{0};
        auto writer = std::async(async, [&] {
            while (send(5, std::string(1000, 'x')) == 1000)
                ++blocks;
        });
        EXPECT_TRUE(eventually([&] { // it comes to a stop
            const int32_t before = blocks;
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            return blocks == before;
        }));
        EXPECT_EQ(writer.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
        EXPECT_EQ(ComClose(5), 1);
        EXPECT_EQ(writer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    }
}

// A driver that cannot be stopped: the close gives up waiting, and everything lives on until the thread
// comes back.
TEST(Closing, LeavesAThreadThatDoesNotComeBackItsPort) {
    const FastClock fast;
    ScriptedDriver stuck("scripted-stuck");
    ScriptedDriver other("scripted-other");
    stuck.holdCompleteWrites();
    stuck.ignoreCancel();
    stuck.limitRoom(0);
    ASSERT_EQ(openOn(5, stuck.path()), 5);
    ComSuspendPortWriteThru(5);
    EXPECT_EQ(send(5, "lost"), 4);
    EXPECT_TRUE(eventually([&] { return stuck.inWrite(); }));
    EXPECT_EQ(ComClose(5), 1);
    EXPECT_EQ(stuck.devices(), 1);

    ASSERT_EQ(openOn(5, other.path()), 5);
    other.feed("new");
    EXPECT_EQ(receive(5, 3), "new");
    stuck.grant(100);
    EXPECT_TRUE(eventually([&] { return stuck.devices() == 0; }));
    EXPECT_EQ(send(5, "works"), 5);
    EXPECT_EQ(ComClose(5), 1);
    EXPECT_EQ(other.written(), "works");
}

TEST(Closing, OfTwoClosesAtOnceOneCloses) {
    const FastClock fast;
    ScriptedDriver driver;
    for (int32_t round = 0; round < 10; ++round) {
        ASSERT_EQ(openOn(5, driver.path()), 5);
        std::barrier start(2);
        const auto close = [&start](bool pre) {
            start.arrive_and_wait();
            return pre ? ComPreClose(5) : ComClose(5);
        };
        auto first = std::async(async, close, false);
        auto second = std::async(async, close, round % 2 == 1);
        std::array results{first.get(), second.get()};
        std::sort(results.begin(), results.end());
        EXPECT_EQ(results, (std::array{-1, 1}));
        EXPECT_TRUE(eventually([&] { return driver.devices() == 0; }));
    }
}

// ---- Adopted handles ---------------------------------------------------------------------------------

TEST(ClosingAdopted, PreCloseLeavesTheHandleAndCloseTakesIt) {
    const FastClock fast;
    Pty pty;
    for (const bool ours : {false, true}) {
        SCOPED_TRACE(ours ? "handle of the library" : "plain descriptor");
        const char* const path = pty.slavePath().c_str();
        const int handle = ours ? ComHostOpenDevice(path) : ::open(path, O_RDWR | O_NOCTTY);
        ASSERT_GE(handle, 0);
        ASSERT_EQ(CPreOpen(5, 9600, 8, 1, 1, handle), 5);
        EXPECT_EQ(ComPreClose(5), 1);
        EXPECT_EQ(::write(handle, "still", 5), 5);
        EXPECT_EQ(pty.read(5), "still");

        ASSERT_EQ(CPreOpen(5, 9600, 8, 1, 1, handle), 5);
        EXPECT_EQ(ComClose(5), 1);
        EXPECT_TRUE(eventually([&] { return !isOpenDescriptor(handle); }));
        EXPECT_EQ(ComHostCloseDevice(handle), -1);
    }
}

// The number of a handle that its owner has closed may long be another file's.
TEST(ClosingAdopted, CloseDoesNotCloseAHandleThatIsClosedAlready) {
    const FastClock fast;
    ScriptedDriver driver;
    const int innocent = ::open("/dev/null", O_RDWR);
    driver.setHandle(innocent);
    const int32_t handle = ComHostOpenDevice(driver.path().c_str());
    ASSERT_EQ(handle, innocent);
    ASSERT_EQ(CPreOpen(5, 9600, 8, 1, 1, handle), 5);
    EXPECT_EQ(ComHostCloseDevice(handle), 1);
    driver.feed("works on");
    EXPECT_EQ(receive(5, 8), "works on");
    EXPECT_EQ(ComClose(5), 1);
    EXPECT_TRUE(eventually([&] { return driver.devices() == 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(isOpenDescriptor(innocent));
    ::close(innocent);
}

} // namespace

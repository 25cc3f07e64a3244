// A port that closes under those who use it: waits, writes, other closes, and the next life of the same number.
#include <future>

#include <fcntl.h>
#include <unistd.h>

#include "port/tracked_memory.h"
#include "support/open_port.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

constexpr auto async = std::launch::async;

TEST(Closing, TheNumberMayBeOpenedAgainWhileTheOldPortWindsUp) {
    const LogFile trace;
    ScriptedDriver oldDriver("scripted-old"), newDriver("scripted-new");
    ASSERT_EQ(openOn(5, oldDriver.path()), 5);
    ASSERT_NE(ComMalloc(5, 10), nullptr);
    char bytes[9];
    auto waiting = std::async(async, ComReadTimed, 5, bytes, 9, 300'000);
    auto closing = std::async(async, ComClose, 5);
    EXPECT_TRUE(eventually([&] { return openOn(5, newDriver.path()) == 5; }));
    void* const block = ComMalloc(5, 100);
    EXPECT_EQ(ComSetPortDebugFile(5, trace.path().c_str()), 1);
    const std::string sent = "bytes of the new life";
    newDriver.feed(sent);
    EXPECT_EQ(closing.get(), 1);

    EXPECT_EQ(waiting.get(), -1);
    EXPECT_TRUE(eventually([&] { return oldDriver.devices() == 0; }));
    EXPECT_EQ(ComOpenState(5), 1);
    EXPECT_EQ(tracked::outstanding(5), 1U) << "the old block is gone, the new one is not";
    EXPECT_EQ(ComFree(5, block), 0);
    EXPECT_EQ(HeldPort(5)->workArea->portDebugFileName, trace.path());
    EXPECT_EQ(receive(5, sent.size()), sent) << "nobody of the old life may take them";
    const std::string text = trace.text();
    EXPECT_NE(text.find("Read:21 "), std::string::npos) << text;
    EXPECT_EQ(text.find("ComClose"), std::string::npos) << text;
    EXPECT_EQ(ComClose(5), 1);
}

// The caller writes, or the port's thread out of its ring.
TEST(Closing, LeavesAWriteAloneThatMovesForAsLongAsItWaits) {
    const FastClock fast(10);
    for (const auto& [queued, count, least] :
         {std::tuple{false, 100U, 100U}, {false, 2000U, 401U}, {true, 100U, 100U}, {true, 2000U, 401U}}) {
        SCOPED_TRACE(testing::Message()
                     << count << (queued ? " on the I/O thread" : " on the caller's thread"));
        for (const int32_t port : {6, 5}) {
            EXPECT_EQ(openOn(port, "null-modem:moving?paced"), port);
            EXPECT_EQ(ComSetBaud(port, 1200), 1);
        }
        ComSetWriteTimeout(5, UINT32_MAX);
        if (queued)
            ComSuspendPortWriteThru(5);
        auto writing = std::async(async, send, 5, std::string(count, 'x'));
        EXPECT_TRUE(eventually([] { return ComStatus(6) > 0; }));
        EXPECT_EQ(ComClose(5), 1);
        EXPECT_EQ(writing.wait_for(10s), std::future_status::ready);
        const std::size_t delivered = readTimed(6, 2000, 100).size();
        EXPECT_GE(delivered, least);
        EXPECT_LT(delivered, 2000U) << "all of them would take 16 s";
        EXPECT_EQ(ComClose(6), 1);
    }
}

TEST(Closing, EndsAWriteThatThePeerHoldsOff) {
    const Pty pty;
    for (const std::string& path : {pty.slavePath(), std::string("null-modem:held")})
        for (const bool queued : {false, true}) {
            SCOPED_TRACE(path + (queued ? " on the I/O thread" : " on the caller's thread"));
            ASSERT_EQ(openOn(5, path), 5);
            if (path != pty.slavePath())
                ComSetFlow(5, 0); // nobody at the other end raises CTS
            ComSetWriteTimeout(5, UINT32_MAX);
            if (queued)
                ComSuspendPortWriteThru(5);
            auto writer = std::async(async, [] {
                while (send(5, std::string(1000, 'x')) > 0) {
                }
            });
            std::this_thread::sleep_for(300ms);
            const auto start = SteadyClock::now();
            EXPECT_EQ(ComClose(5), 1);
            EXPECT_LT(SteadyClock::now() - start, 4s);
            EXPECT_EQ(writer.wait_for(10s), std::future_status::ready);
        }
}

// A driver that cannot be stopped: the close gives up waiting, and everything lives on until the thread
// comes back.
TEST(Closing, LeavesAThreadThatDoesNotComeBackItsPort) {
    const FastClock fast;
    ScriptedDriver stuck("scripted-stuck"), other("scripted-other");
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
        EXPECT_TRUE(eventually([&] { return fcntl(handle, F_GETFD) < 0; }));
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
    std::this_thread::sleep_for(20ms);
    EXPECT_GE(fcntl(innocent, F_GETFD), 0);
    ::close(innocent);
}

} // namespace

// A thread that waits for messages takes the bytes of the ports that tell it off their devices itself.
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "port/port_table.h"
#include "support/pty.h"
#include "support/timing.h"

using namespace brisolt;
using test::eventually;
using test::Pty;

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

class WatchedOver : public ::testing::Test {
protected:
    void open(int count, uint32_t ring = 4096) {
        for (int port = 1; port <= count; ++port) {
            far.push_back(std::make_unique<Pty>());
            ASSERT_EQ(ComHostMapDevice(port, far.back()->slavePath().c_str()), 1);
            ASSERT_EQ(ComOpen("test", port, 9600, 8, 1, 1, ring, ring), port);
            ComHostSetLossless(port, 1);
            ComSetBackgroundTimeout(port, 0);
            ASSERT_EQ(ComSetNotifyThreadMessageAnyChar(port, ComHostThreadId()), 1);
        }
    }
    void TearDown() override {
        for (std::size_t port = 1; port <= far.size(); ++port)
            ComHostClose(static_cast<int32_t>(port), 0);
    }
    Pty& end(int32_t port) { return *far[static_cast<std::size_t>(port) - 1]; }
    /// Waits until this thread watches over the port.
    static bool watchedOver(int32_t port) {
        return eventually([port] {
            ComHostMessage message{};
            ComHostGetMessage(&message, 10);
            const HeldPort held(port);
            return held->watchedBy == ComHostThreadId() && held->receiving.threadStandsBack();
        });
    }
    /// In the ring: ComStatus would fetch them itself.
    static int32_t unread(int32_t port) {
        const HeldPort held(port);
        const HeldLock lock(*held);
        return held->rx.count();
    }
    /// Reads what messages tell of until that much has come over the port.
    static std::string told(int32_t port, std::size_t count) {
        std::string all;
        char buffer[512];
        ComHostMessage message{};
        while (all.size() < count && ComHostGetMessage(&message, 5000) == 1) {
            int32_t got = message.second == port ? ComRead(port, buffer, sizeof buffer) : 0;
            for (; got > 0; got = ComRead(port, buffer, sizeof buffer))
                all.append(buffer, static_cast<std::size_t>(got));
        }
        return all;
    }

    std::vector<std::unique_ptr<Pty>> far;
};

TEST_F(WatchedOver, ManyPortsEchoThroughOneThread) {
    constexpr int ports = 8;
    open(ports);
    for (int port = 1; port <= ports; ++port)
        EXPECT_TRUE(watchedOver(port));
    for (int round = 0; round < 30; ++round) {
        for (int port = 1; port <= ports; ++port)
            end(port).write("ping" + std::to_string(port));
        for (std::size_t echoed = 0; echoed < 5 * ports;) {
            ComHostMessage message{};
            ASSERT_EQ(ComHostGetMessage(&message, 5000), 1);
            const auto port = static_cast<int32_t>(message.second);
            char buffer[16];
            const int32_t count = ComRead(port, buffer, sizeof buffer);
            EXPECT_EQ(ComWrite(port, buffer, count), count);
            echoed += static_cast<std::size_t>(count);
        }
        for (int port = 1; port <= ports; ++port)
            EXPECT_EQ(end(port).read(5), "ping" + std::to_string(port));
    }
}

TEST_F(WatchedOver, AFullRingSendsThePortBack) {
    open(1, 2048);
    EXPECT_TRUE(watchedOver(1));
    std::string sent;
    for (char c = 'a'; c <= 'z'; ++c)
        sent += std::string(200, c);
    std::thread writer([&] { end(1).write(sent); });
    EXPECT_TRUE(eventually([] {
        ComHostMessage message{};
        ComHostGetMessage(&message, 10);
        return HeldPort(1)->watchedBy == 0;
    })) << "the ring is full";
    EXPECT_EQ(told(1, sent.size()), sent);
    writer.join();
    EXPECT_TRUE(watchedOver(1)) << "there is room again";
}

TEST_F(WatchedOver, ASuspensionHoldsBothDirections) {
    open(1);
    EXPECT_TRUE(watchedOver(1));
    ComSuspendPortWriteThru(1);
    const auto start = Clock::now();
    ComSuspend(1);
    auto sent = std::async(std::launch::async, [this] {
        EXPECT_EQ(end(1).read(3), "out");
        return Clock::now();
    });
    char out[] = "out";
    EXPECT_EQ(ComWrite(1, out, 3), 3);
    end(1).write("in");
    EXPECT_EQ(told(1, 2), "in");
    EXPECT_GE(Clock::now() - start, Milliseconds(450));
    EXPECT_GE(sent.get() - start, Milliseconds(450));
    EXPECT_TRUE(watchedOver(1));
}

TEST_F(WatchedOver, AThreadThatEndsLeavesItsPortsToThemselves) {
    open(1);
    std::thread([] {
        ComSetNotifyThreadMessageAnyChar(1, ComHostThreadId());
        EXPECT_TRUE(watchedOver(1));
    }).join();
    end(1).write("abc");
    EXPECT_TRUE(eventually([] { return unread(1) == 3; }));
    ComSetNotifyThreadMessageAnyChar(1, ComHostThreadId());
    end(1).write("d");
    EXPECT_EQ(told(1, 4), "abcd");
}

// Whatever becomes of one port, another has somebody who looks after it while the thread is busy.
TEST_F(WatchedOver, NoPortDependsOnAnother) {
    static std::atomic<int> calls{0};
    const std::function<void()> fates[] = {
        [] {},
        [this] { // which costs nothing either
            end(1).close();
            ComHostMessage message{};
            EXPECT_LT(test::processorTimeOf(CLOCK_PROCESS_CPUTIME_ID,
                                            [&] { EXPECT_EQ(ComHostGetMessage(&message, 1000), 0); }),
                      Milliseconds(100));
        },
        [this] { // somebody else is told, although this thread looks for no messages
            ComSetNotifyMessageOnAnyCharCallBackFunc(1, [](int32_t) { return ++calls; });
            end(1).write("x");
            EXPECT_TRUE(eventually([] { return calls > 0; }));
            ComSetNotifyMessageOnAnyCharCallBackFunc(1, nullptr);
            EXPECT_EQ(told(1, 1), "x");
            EXPECT_TRUE(watchedOver(1));
        },
        [] { ComSetNotifyThreadMessageAnyChar(1, 0); },
        [] { ComSuspend(1); },
        [] { ComSetBackgroundTimeout(1, 100); },
        [] { ComClose(1); },
        [] { // and comes back, again and again
            for (int i = 0; i < 50; ++i) {
                EXPECT_EQ(ComHostClose(1, 0), 1);
                EXPECT_EQ(ComOpen("test", 1, 9600, 8, 1, 1, 4096, 4096), 1);
                ComSetBackgroundTimeout(1, 0);
                ComSetNotifyThreadMessageAnyChar(1, ComHostThreadId());
            }
            EXPECT_TRUE(watchedOver(1));
        },
    };
    for (const auto& fate : fates) {
        open(2);
        EXPECT_TRUE(watchedOver(1) && watchedOver(2));
        fate();
        end(2).write("two");
        EXPECT_TRUE(eventually([] { return unread(2) == 3; })) << "nobody looks for messages";
        EXPECT_EQ(told(2, 3), "two");
        EXPECT_TRUE(watchedOver(2)) << "it has come back";
        auto writer = std::async(std::launch::async, [this] { end(2).write("late"); });
        char buffer[4];
        EXPECT_EQ(ComReadTimed(2, buffer, 4, 500), 4) << "another wait than for messages";
        writer.get();
        TearDown();
        far.clear();
    }
}

TEST_F(WatchedOver, APortThatIsBusyKeepsNobodyWaiting) {
    open(2);
    EXPECT_TRUE(watchedOver(1) && watchedOver(2));
    ComHostSetLossless(1, 0);
    ComSetWriteTimeout(1, 60000);
    std::atomic<bool> written{false};
    std::thread writer([&] {
        std::string block(1000, 'w');
        while (ComWrite(1, block.data(), 1000) ==
               1000) // until the far end, which reads nothing, holds it off
            continue;
        written = true;
    });
    EXPECT_TRUE(eventually([] { // the writer waits with the port in its hands
        const HeldPort held(1);
        const uint32_t turn = held->writeTurn;
        std::this_thread::sleep_for(Milliseconds(50));
        return turn % 2 == 1 && held->writeTurn == turn;
    }));
    end(1).write("for the busy one");
    end(2).write("now");
    EXPECT_EQ(told(2, 3), "now");
    EXPECT_FALSE(written);
    ComClose(1);
    writer.join();
}

// A device that drops bytes must not seem empty while it holds more.
TEST_F(WatchedOver, EveryByteIsToldOfThatComesBehindDroppedOnes) {
    open(1, 2048);
    ASSERT_EQ(ComSetParms(1, 3, 8, 1), 1);
    ASSERT_EQ(ComSetLineErrorReplacement(1, 1, '?'), 1); // the host doubles 0xFF from now on
    EXPECT_TRUE(watchedOver(1));
    ComHostMessage message{};
    end(1).write(std::string(2000, 'a'));
    EXPECT_TRUE(eventually([&] { return ComHostGetMessage(&message, 10) == 1 && unread(1) == 2000; }));
    char buffer[1500];
    EXPECT_EQ(ComRead(1, buffer, 1500), 1500); // the room of the ring lies in two pieces now
    EXPECT_TRUE(watchedOver(1));
    std::string sent;
    for (int i = 0; i < 200; ++i)
        sent += i % 4 == 0 ? '\xFF' : 'b';
    end(1).write(sent);
    EXPECT_TRUE(eventually([&] {
        ComHostGetMessage(&message, 10);
        return unread(1) == 700;
    }));
}

} // namespace

// A thread that waits for messages takes the bytes of the ports that tell it off their devices itself.
#include <atomic>
#include <functional>
#include <future>

#include "support/open_port.h"

namespace brisolt::test {
namespace {

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
    /// A short wait for messages, during which this thread watches over ports.
    static int32_t look(int32_t milliseconds = 10) {
        ComHostMessage message{};
        return ComHostGetMessage(&message, milliseconds);
    }
    /// Waits until this thread watches over the port.
    static bool watchedOver(int32_t port) {
        return eventually([port] {
            look();
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
        ComHostMessage message{};
        while (all.size() < count && ComHostGetMessage(&message, 5000) == 1)
            for (std::string got(1, ' '); message.second == port && !got.empty(); all += got)
                got = readUpTo(port, 512);
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
            const std::string ping = readUpTo(port, 16);
            EXPECT_EQ(send(port, ping), static_cast<int32_t>(ping.size()));
            echoed += ping.size();
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
        look();
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
    const auto start = SteadyClock::now();
    ComSuspend(1);
    auto sent = std::async(std::launch::async, [this] {
        EXPECT_EQ(end(1).read(3), "out");
        return SteadyClock::now();
    });
    EXPECT_EQ(send(1, "out"), 3);
    end(1).write("in");
    EXPECT_EQ(told(1, 2), "in");
    EXPECT_GE(SteadyClock::now() - start, 450ms);
    EXPECT_GE(sent.get() - start, 450ms);
    EXPECT_TRUE(watchedOver(1));
}

// Whatever becomes of one port, another has somebody who looks after it while the thread is busy.
TEST_F(WatchedOver, NoPortDependsOnAnother) {
    static std::atomic<int> calls{0};
    const std::function<void()> fates[] = {
        [] {},
        [this] { // which costs nothing either
            end(1).close();
            EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [] { EXPECT_EQ(look(1000), 0); }), 100ms);
        },
        [this] { // somebody else is told, although this thread looks for no messages
            ComSetNotifyMessageOnAnyCharCallBackFunc(1, [](int32_t) { return ++calls; });
            end(1).write("x");
            EXPECT_TRUE(eventually([] { return calls > 0; }));
            ComSetNotifyMessageOnAnyCharCallBackFunc(1, nullptr);
            EXPECT_EQ(told(1, 1), "x");
            EXPECT_TRUE(watchedOver(1));
        },
        [this] { // the thread that is told ends
            std::thread([] {
                ComSetNotifyThreadMessageAnyChar(1, ComHostThreadId());
                EXPECT_TRUE(watchedOver(1));
            }).join();
            end(1).write("abc");
            EXPECT_TRUE(eventually([] { return unread(1) == 3; }));
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
        EXPECT_EQ(readTimed(2, 4, 500), "late") << "another wait than for messages";
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
        while (send(1, std::string(1000, 'w')) == 1000) {
        } // until the far end, which reads nothing, holds it off
        written = true;
    });
    EXPECT_TRUE(eventually([] { // the writer waits with the port in its hands
        const HeldPort held(1);
        const uint32_t turn = held->writeTurn;
        std::this_thread::sleep_for(50ms);
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
    end(1).write(std::string(2000, 'a'));
    EXPECT_TRUE(eventually([] { return look() == 1 && unread(1) == 2000; }));
    EXPECT_EQ(readUpTo(1, 1500).size(), 1500U); // the room of the ring lies in two pieces now
    EXPECT_TRUE(watchedOver(1));
    std::string sent;
    for (int i = 0; i < 200; ++i)
        sent += i % 4 == 0 ? '\xFF' : 'b';
    end(1).write(sent);
    EXPECT_TRUE(eventually([] { return look() >= 0 && unread(1) == 700; }));
}

} // namespace
} // namespace brisolt::test

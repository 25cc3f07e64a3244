// A thread that waits for messages takes the bytes of the ports that tell it off their devices itself.
#include <atomic>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "api/brisolt.h"
#include "api/brisolt_host.h"
#include "port/port_table.h"
#include "support/pty.h"

using namespace brisolt;
using test::Pty;

namespace {

using Milliseconds = std::chrono::milliseconds;

template <class Condition> bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(Milliseconds(2));
    }
    return true;
}

class Attended : public ::testing::Test {
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
            ComClose(static_cast<int32_t>(port));
    }
    Pty& end(int32_t port) { return *far[static_cast<std::size_t>(port) - 1]; }
    /// Waits until this thread attends to the port.
    static bool attendedTo(int32_t port) {
        return eventually([port] {
            ComHostMessage message{};
            ComHostGetMessage(&message, 10);
            const HeldPort held(port);
            return held->attendedBy == ComHostThreadId() && held->receiving.threadStandsAside();
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

TEST_F(Attended, ManyPortsEchoThroughOneThread) {
    constexpr int ports = 8;
    constexpr int rounds = 30;
    open(ports);
    for (int port = 1; port <= ports; ++port)
        EXPECT_TRUE(attendedTo(port));
    for (int round = 0; round < rounds; ++round) {
        for (int port = 1; port <= ports; ++port)
            end(port).write("ping" + std::to_string(port));
        std::vector<std::string> got(ports + 1);
        for (int done = 0; done < ports;) {
            ComHostMessage message{};
            ASSERT_EQ(ComHostGetMessage(&message, 5000), 1);
            const auto port = static_cast<int32_t>(message.second);
            std::string& text = got[static_cast<std::size_t>(port)];
            char buffer[16];
            const int32_t count = ComRead(port, buffer, sizeof buffer);
            text.append(buffer, static_cast<std::size_t>(count));
            if (count > 0 && text.size() == 5) {
                EXPECT_EQ(ComWrite(port, text.data(), 5), 5);
                ++done;
            }
        }
        for (int port = 1; port <= ports; ++port)
            EXPECT_EQ(end(port).read(5), "ping" + std::to_string(port));
    }
}

TEST_F(Attended, ThePortsLookAfterThemselvesWhileTheThreadIsBusy) {
    open(2);
    EXPECT_TRUE(attendedTo(1) && attendedTo(2));
    end(1).write("one");
    end(2).write("two");
    EXPECT_TRUE(eventually([] { return unread(1) == 3 && unread(2) == 3; })) << "nobody looks for messages";
    EXPECT_EQ(told(1, 3), "one");
    char buffer[8];
    EXPECT_EQ(ComRead(2, buffer, 8), 3);
    EXPECT_TRUE(attendedTo(1) && attendedTo(2)) << "it has come back";

    std::thread writer([this] { end(1).write("late"); });
    EXPECT_EQ(ComReadTimed(1, buffer, 4, 500), 4) << "another wait than for messages";
    writer.join();
    EXPECT_EQ(std::string(buffer, 4), "late");
    EXPECT_EQ(told(1, 0), "");
}

TEST_F(Attended, AFullRingAndASuspensionSendThePortBack) {
    open(1, 2048);
    EXPECT_TRUE(attendedTo(1));
    std::string sent;
    for (char c = 'a'; c <= 'z'; ++c)
        sent += std::string(200, c);
    std::thread writer([&] { end(1).write(sent); });
    std::this_thread::sleep_for(Milliseconds(50)); // the ring fills up
    EXPECT_EQ(told(1, sent.size()), sent);
    writer.join();
    EXPECT_TRUE(attendedTo(1)) << "there is room again";

    ComSuspend(1);
    end(1).write("held back");
    EXPECT_EQ(told(1, 9), "held back") << "a suspension ends by itself";
}

TEST_F(Attended, OthersWhoAreToldSendThePortBack) {
    static std::atomic<int> calls{0};
    open(1);
    EXPECT_TRUE(attendedTo(1));
    ComSetNotifyMessageOnAnyCharCallBackFunc(1, [](int32_t) {
        EXPECT_NE(ComHostThreadId(), 0U);
        return ++calls;
    });
    end(1).write("x");
    EXPECT_TRUE(eventually([] { return calls > 0; })) << "although this thread looks for no messages";
    EXPECT_EQ(ComOpenState(1), 1);
    ComSetNotifyMessageOnAnyCharCallBackFunc(1, nullptr);
    EXPECT_EQ(told(1, 1), "x");
    EXPECT_TRUE(attendedTo(1));
}

TEST_F(Attended, ADeviceThatGoesAwayCostsNothing) {
    open(2);
    EXPECT_TRUE(attendedTo(1) && attendedTo(2));
    end(1).close();
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    ComHostMessage message{};
    EXPECT_EQ(ComHostGetMessage(&message, 1000), 0);
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    const double seconds = static_cast<double>(after.tv_sec - before.tv_sec) +
                           static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
    EXPECT_LT(seconds, 0.5) << "of the second that was waited";
    end(2).write("still here");
    EXPECT_EQ(told(2, 10), "still here");
}

TEST_F(Attended, AThreadThatEndsLeavesItsPortsToThemselves) {
    open(1);
    std::thread([] {
        ComSetNotifyThreadMessageAnyChar(1, ComHostThreadId());
        EXPECT_TRUE(attendedTo(1));
    }).join();
    end(1).write("abc");
    EXPECT_TRUE(eventually([] { return unread(1) == 3; }));
    ComSetNotifyThreadMessageAnyChar(1, ComHostThreadId());
    end(1).write("d");
    EXPECT_EQ(told(1, 4), "abcd");
}

TEST_F(Attended, PortsCloseAndOpenUnderIt) {
    open(4);
    EXPECT_TRUE(attendedTo(1));
    std::atomic<bool> over{false};
    std::thread writer([&] {
        while (!over)
            for (int port = 1; port <= 4; ++port)
                end(port).write("x", Milliseconds(1));
    });
    std::thread closer([this] {
        const uint32_t reader = 0;
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(ComClose(1 + i), 1);
            EXPECT_EQ(ComOpen("test", 1 + i, 9600, 8, 1, 1, 4096, 4096), 1 + i);
            ComSetNotifyThreadMessageAnyChar(1 + i, reader);
        }
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    std::size_t bytes = 0;
    while (std::chrono::steady_clock::now() < end) {
        ComHostMessage message{};
        char buffer[512];
        if (ComHostGetMessage(&message, 50) == 1)
            if (const int32_t count = ComRead(static_cast<int32_t>(message.second), buffer, sizeof buffer);
                count > 0)
                bytes += static_cast<std::size_t>(count);
    }
    EXPECT_GT(bytes, 0U);
    closer.join();
    over = true;
    writer.join();
}

} // namespace

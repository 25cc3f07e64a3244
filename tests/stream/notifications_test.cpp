// Notifications on received data: who is told what, how often, and what a notified function may do.
#include <atomic>
#include <future>

#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 13;
constexpr uint32_t anyChar = 0x800A;

class Notifications : public testing::Test {
protected:
    /// Lets that many bytes reach the device before the next round, so that one round takes them all.
    void arriveInOneRound(int32_t count) {
        HeldLock noRounds(open.inside());
        far.write(std::string(static_cast<std::size_t>(count), 'x'));
        ASSERT_TRUE(eventually([&] {
            return open.inside().device.status(COM_HOST_WANT_IN).inQueue == static_cast<uint32_t>(count);
        }));
    }
    /// The thread has fetched them. It tells of them after that, when it no longer holds the lock.
    void awaitRound(int32_t count) {
        ASSERT_TRUE(eventually([&] {
            HeldLock lock(open.inside());
            return open.inside().rx.count() == count;
        }));
    }

    Pty far;
    OpenPort open{port, far.slavePath()};
    ComHostMessage message{};
};

TEST_F(Notifications, AThreadGetsOneMessageARound) {
    EXPECT_EQ(ComSetNotifyThreadMessageAnyChar(port, ComHostThreadId()), 1);
    arriveInOneRound(500);
    ASSERT_EQ(ComHostGetMessage(&message, 10000), 1);
    EXPECT_EQ(message.window, 0);
    EXPECT_EQ(message.message, anyChar);
    EXPECT_EQ(message.first, 0U);
    EXPECT_EQ(message.second, port);
    EXPECT_EQ(ComStatus(port), 500) << "the bytes are there when the message is";
    EXPECT_EQ(ComHostGetMessage(&message, 100), 0);

    EXPECT_EQ(ComSetNotifyThreadMessageAnyChar(port, 0), 1);
    arriveInOneRound(10);
    awaitRound(510);
    EXPECT_EQ(ComHostGetMessage(&message, 0), 0);
}

TEST_F(Notifications, AWindowGetsOneMessageARound) {
    std::vector<std::pair<uint32_t, intptr_t>> handled;
    const int32_t window = ComHostCreateWindow(
        [](void* list, int32_t, uint32_t number, uintptr_t, intptr_t second) {
            static_cast<std::vector<std::pair<uint32_t, intptr_t>>*>(list)->emplace_back(number, second);
        },
        &handled);
    EXPECT_EQ(ComSetNotifyMessageAnyChar(port, window), 1);
    for (int32_t rounds = 1; rounds <= 3; ++rounds) {
        arriveInOneRound(300);
        EXPECT_TRUE(eventually([&] {
            EXPECT_EQ(ComServiceMessagePump(), 0);
            return handled.size() == static_cast<std::size_t>(rounds);
        }));
    }
    EXPECT_EQ(handled.back(), (std::pair<uint32_t, intptr_t>{anyChar, port}));
    // A receiver that has gone is no reason to stop.
    ComHostDestroyWindow(window);
    arriveInOneRound(5);
    awaitRound(905);
}

TEST_F(Notifications, AFloodToAThreadThatNeverLooksStaysBounded) {
    std::promise<void> over;
    std::promise<uint32_t> identifier;
    auto sleeper = std::async(std::launch::async, [&] {
        identifier.set_value(ComHostThreadId());
        over.get_future().wait();
        int32_t count = 0;
        for (ComHostMessage next; ComHostGetMessage(&next, 0) == 1;)
            ++count;
        return count;
    });
    ComSetBackgroundTimeout(port, 0);
    ComSetNotifyThreadMessageAnyChar(port, identifier.get_future().get());
    for (int32_t i = 1; i <= 300; ++i) {
        far.write("x");
        awaitRound(i);
    }
    std::this_thread::sleep_for(100ms);
    over.set_value();
    EXPECT_EQ(sleeper.get(), 1);
    arriveInOneRound(1); // and a thread that is gone takes nothing
    awaitRound(301);
}

// ---- Functions: they run on the port's own thread, inside its round ---------------------------------------

std::atomic<int32_t> calls{0};
std::promise<std::string> told;

TEST_F(Notifications, AFunctionIsCalledOnceARound) {
    static std::atomic<bool> onOtherThread{false};
    static const uint32_t here = ComHostThreadId();
    EXPECT_EQ(ComSetNotifyMessageOnAnyCharCallBackFunc(port,
                                                       [](int32_t number) {
                                                           ++calls;
                                                           onOtherThread = ComHostThreadId() != here;
                                                           return number == port ? 0 : ++calls;
                                                       }),
              1);
    arriveInOneRound(700);
    EXPECT_TRUE(eventually([] { return calls == 1; }));
    arriveInOneRound(1);
    EXPECT_TRUE(eventually([] { return calls == 2; }));
    EXPECT_TRUE(onOtherThread);
    readUpTo(port, 701);
    // What a caller fetches while it waits is told of as well.
    auto reading = std::async(std::launch::async, [] { return readTimed(port, 1); });
    far.write("y");
    EXPECT_EQ(reading.get(), "y");
    EXPECT_TRUE(eventually([] { return calls == 3; }));

    ComSetNotifyMessageOnAnyCharCallBackFunc(port, nullptr);
    arriveInOneRound(1);
    awaitRound(1);
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(calls, 3);
}

// Who was told once and has not read may have to be reminded: the device holds more.
TEST_F(Notifications, AFullRingIsToldOfAgain) {
    ComSetNotifyMessageOnAnyCharCallBackFunc(port, [](int32_t) { return ++calls; });
    far.write(std::string(3000, 'x'));
    awaitRound(2048);
    const auto used = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [] {
        const int32_t before = calls;
        EXPECT_TRUE(eventually([before] { return calls > before + 5; }));
    });
    EXPECT_LT(used, 300ms);
    EXPECT_EQ(readUpTo(port, 2048).size(), 2048U);
    awaitRound(952);
    std::this_thread::sleep_for(200ms);
    const int32_t before = calls;
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(calls, before) << "a ring with room has no more to tell";
}

// At a pace of 0 other waits leave the device to the thread, which is the one that waits here.
TEST_F(Notifications, AFunctionMayReadWaitAndWrite) {
    const ComPortFunc function = [](int32_t number) -> int32_t {
        if (ComStatus(number) < 1)
            return 0;
        std::string got = readUpTo(number, 1);
        ComSleepMS(number, 20);
        got += readTimed(number, 6, 500);
        char rest[20] = {};
        EXPECT_EQ(ComReadBuf(number, rest, '.', 19, 10), 2);
        return write(number, got + rest);
    };
    for (uint32_t pace : {50U, 0U, 10000U}) {
        SCOPED_TRACE(pace);
        ComSetBackgroundTimeout(port, pace);
        EXPECT_EQ(ComSetNotifyMessageOnAnyCharCallBackFunc(port, function), 1);
        for (const char* piece : {"q", "uest", "ion", ", and", " more."}) {
            far.write(piece);
            std::this_thread::sleep_for(50ms);
        }
        EXPECT_EQ(far.read(19, 20s), "question, and more.");
        ComSetNotifyMessageOnAnyCharCallBackFunc(port, nullptr);
    }
}

TEST_F(Notifications, AFunctionMayCloseItsPort) {
    told = {};
    ComSetNotifyMessageOnAnyCharCallBackFunc(port, [](int32_t number) {
        const int32_t closed = ComClose(number);
        told.set_value(std::to_string(closed) + ' ' + std::to_string(ComClose(number)) + ' ' +
                       std::to_string(ComStatus(number)));
        return 1;
    });
    auto answer = told.get_future();
    const auto start = SteadyClock::now();
    far.write("goodbye");
    ASSERT_EQ(answer.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(answer.get(), "1 -1 -1");
    EXPECT_LT(SteadyClock::now() - start, 4s);
    EXPECT_EQ(ComOpenState(port), 0);
    open.close(); // lets go of its inside
    OpenPort again(port, far.slavePath());
    far.write("hello");
    EXPECT_EQ(readTimed(port, 5), "hello");
}

// The other way round: a close by somebody else while the function waits.
TEST_F(Notifications, ACloseEndsTheWaitOfAFunction) {
    told = {};
    ComSetNotifyMessageOnAnyCharCallBackFunc(port, [](int32_t number) {
        calls = 1;
        told.set_value(std::to_string(ComSleep(number, 60)));
        return 1;
    });
    auto answer = told.get_future();
    far.write("x");
    ASSERT_TRUE(eventually([] { return calls == 1; }));
    auto closing = std::async(std::launch::async, [this] { return open.close(); });
    EXPECT_EQ(answer.wait_for(3s), std::future_status::ready);
    EXPECT_EQ(answer.get(), "-1");
    EXPECT_EQ(closing.get(), 1);
}

} // namespace
} // namespace brisolt::test

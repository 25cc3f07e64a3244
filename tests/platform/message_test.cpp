#include "platform/message.h"

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/clock.h"
#include "platform/signal.h"
#include "platform/thread.h"

using namespace brisolt;

namespace {

constexpr int32_t patience = 20'000;
using Function = std::function<void(int32_t window, uint32_t message, uintptr_t first)>;

void call(void* context, int32_t window, uint32_t message, uintptr_t first, intptr_t) {
    (*static_cast<Function*>(context))(window, message, first);
}

int32_t window(Function& function, bool shared = false) {
    return (shared ? ComHostCreateSharedWindow : ComHostCreateWindow)(call, &function);
}

bool readable(int32_t descriptor) {
    Watch watch{.descriptor = descriptor, .forRead = true};
    return waitAny({&watch, 1}, 0) == 1;
}

template <class Value> void waitFor(const std::atomic<Value>& value) {
    while (!value)
        std::this_thread::yield();
}

bool pumpOne() {
    ComHostMessage message;
    return message::take(message) && message::dispatch(message);
}

bool post(uint32_t message, uintptr_t first = 0) {
    return ComHostPostThreadMessage(ComHostThreadId(), message, first, 0) == 1;
}

uint32_t taken() {
    ComHostMessage message{};
    return ComHostGetMessage(&message, 0) == 1 ? message.message : 0;
}

} // namespace

TEST(Queue, KeepsOrderBoundAndEqualNotificationsOnce) {
    EXPECT_FALSE(message::waiting());
    EXPECT_TRUE(post(0x800A, 1) && post(5) && post(0x800A, 1) && post(0x800A, 2) && post(0x8009) &&
                post(0x8009));
    for (uint32_t expected : {0x800Au, 5u, 0x800Au, 0x8009u, 0x8009u, 0u})
        EXPECT_EQ(taken(), expected);
    EXPECT_TRUE(post(0x800A, 1)); // nothing equal waits any more
    for (int i = 1; i < COM_HOST_QUEUE_LIMIT; ++i)
        ASSERT_TRUE(post(7));
    EXPECT_FALSE(post(7));
    EXPECT_FALSE(post(0x800B, 1));
    EXPECT_TRUE(post(0x800A, 1));
    EXPECT_EQ(taken(), 0x800Au);
    EXPECT_TRUE(post(7));
    while (taken() != 0) {
    }
}

TEST(Queue, QuitComesAfterTheMessagesAndIsSeenBefore) {
    const int32_t descriptor = ComHostMessageDescriptor();
    EXPECT_FALSE(readable(descriptor));
    ComHostMessage message{};
    ASSERT_EQ(ComHostPostQuit(ComHostThreadId()), 1);
    ASSERT_EQ(ComHostPostChar(ComHostThreadId(), 27), 1);
    ASSERT_TRUE(post(1));
    EXPECT_TRUE(message::quitPending() && readable(descriptor));
    EXPECT_TRUE(message::take(message));
    EXPECT_EQ(message.message, static_cast<uint32_t>(COM_HOST_MESSAGE_CHAR));
    EXPECT_EQ(message.first, 27u);
    EXPECT_TRUE(readable(descriptor));
    EXPECT_EQ(taken(), 1u);
    EXPECT_FALSE(message::take(message));
    EXPECT_TRUE(message::quitPending() && readable(descriptor));
    EXPECT_EQ(ComHostGetMessage(&message, -1), -1);
    EXPECT_FALSE(message::quitPending() || readable(descriptor));
    EXPECT_EQ(ComHostGetMessage(&message, 1), 0);
    EXPECT_TRUE(post(COM_HOST_MESSAGE_QUIT));
    EXPECT_FALSE(message::waiting());
    EXPECT_EQ(ComHostGetMessage(&message, 0), -1);
}

TEST(Queue, NoPostIsLostOnASleepingThread) {
    constexpr int posters = 3;
    constexpr int each = 4000;
    uint32_t me = ComHostThreadId();
    std::vector<std::jthread> threads;
    for (int i = 0; i < posters; ++i)
        threads.emplace_back([me, i] {
            for (int n = 0; n < each; ++n)
                while (ComHostPostThreadMessage(me, 1, static_cast<uintptr_t>(i), n) != 1)
                    std::this_thread::yield();
        });
    intptr_t next[posters] = {};
    for (int n = 0; n < posters * each; ++n) {
        ComHostMessage message{};
        ASSERT_EQ(ComHostGetMessage(&message, patience), 1) << "after " << n;
        EXPECT_EQ(message.second, next[message.first]++);
    }
    threads.clear();
    EXPECT_FALSE(message::waiting());
}

TEST(Queue, PostsReachThreadsThatHaveNotLookedYetButNoEndedOnes) {
    for (const bool looks : {true, false}) {
        std::atomic<uint32_t> id{0};
        std::atomic<bool> posted{false};
        std::thread other([&] {
            id = ComHostThreadId();
            waitFor(posted);
            EXPECT_TRUE(!looks || (message::quitPending() && taken() == 9));
        });
        waitFor(id);
        EXPECT_EQ(ComHostPostThreadMessage(id, 9, 0, 0), 1);
        EXPECT_EQ(ComHostPostQuit(id), 1);
        posted = true;
        other.join();
        EXPECT_EQ(ComHostPostThreadMessage(id, 9, 0, 0), -1);
        EXPECT_EQ(ComHostPostQuit(id), -1);
    }
    EXPECT_EQ(ComHostPostQuit(0), -1);
}

TEST(Windows, BelongToTheirThread) {
    int calls = 0;
    Function count = [&](int32_t, uint32_t, uintptr_t) { ++calls; };
    int32_t mine = window(count);
    ASSERT_GT(mine, 0);
    int32_t theirs = 0;
    std::thread other([&] {
        theirs = window(count);
        EXPECT_EQ(ComHostPostMessage(mine, 1, 0, 0), 1);
        EXPECT_FALSE(pumpOne());
        ComHostMessage forged{mine, 1, 0, 0};
        EXPECT_EQ(ComHostDispatchMessage(&forged), 0);
    });
    other.join();
    EXPECT_GT(theirs, mine);
    EXPECT_EQ(ComHostPostMessage(theirs, 1, 0, 0), -1);
    EXPECT_EQ(ComHostDestroyWindow(theirs), -1);
    EXPECT_TRUE(pumpOne());
    EXPECT_EQ(calls, 1);

    ComHostMessage message{};
    ComHostPostMessage(mine, 1, 0, 0);
    ComHostPostMessage(mine, 2, 0, 0);
    ASSERT_EQ(ComHostGetMessage(&message, 0), 1);
    EXPECT_TRUE(readable(ComHostMessageDescriptor()));
    EXPECT_EQ(ComHostDestroyWindow(mine), 1);
    EXPECT_EQ(ComHostDispatchMessage(&message), 0);
    EXPECT_FALSE(message::waiting() || readable(ComHostMessageDescriptor()));
    EXPECT_EQ(calls, 1);
}

TEST(Windows, OwnAndSharedMessagesComeInTheOrderOfTheirPosts) {
    std::vector<uintptr_t> seen;
    Function note = [&](int32_t, uint32_t, uintptr_t first) { seen.push_back(first); };
    int32_t windows[] = {window(note), window(note, true), window(note, true)};
    for (uintptr_t n = 0; n < 9; ++n)
        ComHostPostMessage(windows[n * 2 % 3], 1, n, 0);
    while (pumpOne()) {
    }
    EXPECT_EQ(seen, (std::vector<uintptr_t>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    for (int32_t each : windows)
        ComHostDestroyWindow(each);
}

// Threads pump a shared window whose function pumps again, by the library's own pump or by a program's loop.
void pumpASharedWindow(bool programsLoop) {
    SCOPED_TRACE(programsLoop ? "a program's loop" : "the library's pump");
    constexpr uintptr_t total = 6000;
    const auto pump = [programsLoop](int32_t milliseconds) {
        ComHostMessage message;
        const bool got =
            programsLoop ? ComHostGetMessage(&message, milliseconds) == 1 : message::take(message);
        return got && message::dispatch(message);
    };
    std::atomic<uint32_t> runner{0};
    std::atomic<uintptr_t> handled{0};
    uintptr_t depth = 0; // not atomic: only one thread at a time may be inside
    Function handle = [&](int32_t, uint32_t, uintptr_t first) {
        uint32_t before = runner.exchange(ComHostThreadId());
        EXPECT_TRUE(before == 0 || before == ComHostThreadId());
        ++depth;
        uintptr_t place = handled++;
        EXPECT_TRUE(programsLoop || place == first) << "in order";
        if (first % 3 == 0 && depth < 4)
            pump(0);
        if (--depth == 0)
            runner = 0;
    };
    int32_t shared = window(handle, true);
    std::vector<std::thread> pumps;
    for (int i = 0; i < 4; ++i)
        pumps.emplace_back([&] {
            auto deadline = clock::Deadline::in(3 * patience);
            while (handled < total && !deadline.passed())
                pump(50);
        });
    for (uintptr_t n = 0; n < total; ++n)
        ASSERT_EQ(ComHostPostMessage(shared, 1, n, 0), 1);
    for (auto& thread : pumps)
        thread.join();
    EXPECT_EQ(handled, total);
    EXPECT_EQ(ComHostDestroyWindow(shared), 1);
}

TEST(Windows, SharedOnesAreHandledOneMessageAtATimeAndNoneIsLost) {
    pumpASharedWindow(true);
    pumpASharedWindow(false);
}

// A shared window's message is a thread's to take only while no other thread handles an earlier one.
TEST(Windows, SharedOnesWakeASleepingThreadWhenTheirTurnComes) {
    const int32_t descriptor = ComHostMessageDescriptor();
    std::atomic<bool> inside{false};
    std::atomic<int> handled{0};
    std::atomic<bool> goOn{false};
    Function handle = [&](int32_t, uint32_t message, uintptr_t) {
        if (message == 1) {
            inside = true;
            waitFor(goOn);
        }
        ++handled;
    };
    int32_t shared = window(handle, true);
    std::thread busy([&] {
        while (!pumpOne())
            std::this_thread::yield();
    });
    ComHostPostMessage(shared, 1, 0, 0);
    waitFor(inside);
    ComHostMessage message{shared, 3, 0, 0};
    EXPECT_EQ(ComHostDispatchMessage(&message), 1); // not now: it waits for its turn
    ComHostPostMessage(shared, 2, 0, 0);
    EXPECT_FALSE(readable(descriptor) || message::waiting());
    EXPECT_EQ(handled, 0);
    std::thread sleeper([&] {
        for (int i = 0; i < 2; ++i) {
            ComHostMessage next{};
            EXPECT_EQ(ComHostGetMessage(&next, patience), 1);
            EXPECT_EQ(next.message, i == 0 ? 3u : 2u);
            ComHostDispatchMessage(&next);
        }
    });
    clock::sleep(20);
    goOn = true;
    busy.join();
    sleeper.join();
    EXPECT_EQ(handled, 3);

    // Taken to be run, never run: the thread's next look at its queue, or its end, gives it up.
    ComHostPostMessage(shared, 2, 0, 0);
    ComHostPostMessage(shared, 2, 0, 0);
    std::thread careless([] {
        ComHostMessage dropped;
        EXPECT_TRUE(message::take(dropped));
    });
    careless.join();
    EXPECT_TRUE(readable(descriptor) && message::waiting());
    EXPECT_TRUE(pumpOne());
    EXPECT_FALSE(readable(descriptor));
    ComHostDestroyWindow(shared);
}

TEST(Windows, DestroyWaitsForTheFunctionUnlessInsideIt) {
    for (bool isShared : {false, true}) {
        std::atomic<int32_t> id{0};
        std::atomic<bool> inside{false};
        std::atomic<bool> left{false};
        Function slow = [&](int32_t, uint32_t, uintptr_t) {
            inside = true;
            clock::sleep(50);
            left = true;
        };
        std::thread owner([&] {
            id = window(slow, isShared);
            ComHostPostMessage(id, 1, 0, 0);
            ComHostPostMessage(id, 1, 0, 0);
            EXPECT_TRUE(pumpOne());
            EXPECT_FALSE(pumpOne());
        });
        waitFor(inside);
        EXPECT_EQ(ComHostDestroyWindow(id), 1);
        EXPECT_TRUE(left);
        owner.join();
    }

    int32_t outer = 0;
    Function destroysOuter = [&](int32_t, uint32_t, uintptr_t) { EXPECT_EQ(ComHostDestroyWindow(outer), 1); };
    int32_t inner = window(destroysOuter, true);
    Function pumps = [&](int32_t, uint32_t, uintptr_t) { EXPECT_TRUE(pumpOne()); };
    outer = window(pumps, true);
    ComHostPostMessage(outer, 1, 0, 0);
    ComHostPostMessage(inner, 1, 0, 0);
    ComHostPostMessage(outer, 2, 0, 0);
    EXPECT_TRUE(pumpOne());
    EXPECT_FALSE(message::waiting());
    EXPECT_EQ(ComHostDestroyWindow(inner), 1);
}

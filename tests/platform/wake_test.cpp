#include "platform/wake.h"

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "platform/clock.h"
#include "platform/error_text.h"
#include "platform/message.h"
#include "platform/thread.h"
#include "port/attendance.h"

using namespace brisolt;

namespace {

constexpr int32_t patience = 20'000;

bool readable(int32_t descriptor, int32_t milliseconds = 0) {
    Watch watch{.descriptor = descriptor, .forRead = true};
    return waitAny({&watch, 1}, milliseconds) == 1 && watch.readable;
}

/// Sleeps as the library's waits do. False: nobody woke us although the condition came true, or in time.
template <typename Condition> bool sleepUntil(Condition condition) {
    Wake& wake = *Wake::ofThisThread();
    auto deadline = clock::Deadline::in(patience);
    for (;;) {
        wake.prepare();
        bool done = condition();
        if (!done)
            readable(wake.descriptor(), deadline.realMillisecondsLeft());
        wake.finish();
        if (done || deadline.passed())
            return done && !deadline.passed();
    }
}

} // namespace

TEST(Wake, CostsNothingWhileTheThreadIsAwake) {
    Wake wake;
    wake.wake();
    EXPECT_FALSE(readable(wake.descriptor()));
    wake.prepare();
    EXPECT_FALSE(wake.woken());
    wake.wake();
    wake.wake();
    EXPECT_TRUE(wake.woken());
    EXPECT_TRUE(readable(wake.descriptor()));
    wake.finish();
    EXPECT_FALSE(readable(wake.descriptor()));
    // A wait that begins anew without having ended leaves nothing behind either.
    wake.prepare();
    wake.wake();
    wake.prepare();
    wake.finish();
    EXPECT_FALSE(readable(wake.descriptor()));
}

TEST(Wake, NoWakeUpIsLostInPingPong) {
    constexpr int rounds = 20'000;
    std::atomic<int> turn{0};
    std::shared_ptr<Wake> wakes[2];
    std::atomic<int> ready{0};
    auto player = [&](int me) {
        wakes[me] = Wake::ofThisThread();
        ++ready;
        while (ready < 2)
            std::this_thread::yield();
        for (int round = me; round < rounds; round += 2) {
            if (!sleepUntil([&] { return turn == round; })) {
                ADD_FAILURE() << "asleep in round " << round;
                turn = rounds;
                return;
            }
            turn = round + 1;
            wakes[1 - me]->wake();
        }
    };
    std::thread other(player, 1);
    player(0);
    other.join();
}

TEST(Wake, ManyWakersLeaveNoDescriptorReadable) {
    std::atomic<int> posted{0};
    std::shared_ptr<Wake> wake = Wake::ofThisThread();
    std::vector<std::thread> wakers;
    for (int i = 0; i < 4; ++i)
        wakers.emplace_back([&] {
            for (int n = 0; n < 5000; ++n) {
                ++posted;
                wake->wake();
            }
        });
    int seen = 0;
    while (seen < 20'000 && sleepUntil([&] { return posted != seen; }))
        seen = posted;
    EXPECT_EQ(seen, 20'000);
    for (auto& waker : wakers)
        waker.join();
    // Whatever was written late is read by the next sleep at the latest.
    wake->prepare();
    wake->finish();
    EXPECT_FALSE(readable(wake->descriptor()));
}

TEST(Wake, WorksWhileThreadsEnd) {
    static std::atomic<int> ended{0};
    struct UsesTheLibraryAtItsEnd {
        ~UsesTheLibraryAtItsEnd() {
            Wake& wake = *Wake::ofThisThread();
            wake.prepare();
            wake.wake();
            wake.finish();
            setErrorText("the end");
            ComHostMessage message;
            bool posted = message::postToThread(thread::currentId(), 1, 2, 3);
            if (posted && message::take(message) && message.first == 2 && errorText() == "the end")
                ++ended;
        }
        int touched = 0;
    };
    ended = 0;
    for (bool destroyedLast : {true, false})
        std::thread([destroyedLast] {
            static thread_local UsesTheLibraryAtItsEnd first;
            first.touched = destroyedLast;
            message::waiting();
            setErrorText("before");
            static thread_local UsesTheLibraryAtItsEnd second;
            second.touched = !destroyedLast;
        }).join();
    EXPECT_EQ(ended, 4);
}

TEST(Wake, WithoutDescriptorsWaitsStillEnd) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers look at memory through descriptors of their own";
#endif
    std::atomic<uint32_t> sleeper{0};
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    rlimit none{3, before.rlim_max};
    int32_t got = 0;
    std::thread waiter([&] {
        setrlimit(RLIMIT_NOFILE, &none);
        EXPECT_LT(Wake::ofThisThread()->descriptor(), 0);
        EXPECT_EQ(message::descriptor(), -1);
        setrlimit(RLIMIT_NOFILE, &before);
        sleeper = thread::currentId();
        ComHostMessage message;
        got = awaitMessage(&message, -1);
    });
    while (sleeper == 0)
        std::this_thread::yield();
    EXPECT_TRUE(message::postToThread(sleeper, 1, 0, 0));
    waiter.join();
    EXPECT_EQ(got, 1);
}

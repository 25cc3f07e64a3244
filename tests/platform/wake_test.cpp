#include "platform/wake.h"

#include <atomic>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

#include "brisolt.h"
#include "platform/error_text.h"
#include "platform/message.h"
#include "platform/thread.h"
#include "support/limit.h"
#include "support/pty.h"
#include "support/timing.h"

using namespace brisolt;

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

// What a thread keeps must go when it ends, or it must do without.
TEST(Wake, WithoutRoomForWhatThreadsKeepWaitsStillEndAndOpensFail) {
    const test::Pty far;
    ComHostMapDevice(5, far.slavePath().c_str());
    std::vector<pthread_key_t> keys;
    for (pthread_key_t key; pthread_key_create(&key, nullptr) == 0;)
        keys.push_back(key);
    EXPECT_TRUE(Wake::ofThisThread()->blind());
    ComHostMessage message;
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComHostGetMessage(&message, 100), 0);
    EXPECT_GE(clock::ticks() - start, 100U);
    EXPECT_EQ(ComOpen("COM", 5, 9600, 8, 1, 1, 0, 0), -38);
    for (pthread_key_t key : keys)
        pthread_key_delete(key);
    EXPECT_EQ(ComOpen("COM", 5, 9600, 8, 1, 1, 0, 0), 5);
    EXPECT_FALSE(Wake::ofThisThread()->blind());
    EXPECT_EQ(ComHostPostChar(ComHostThreadId(), 'x'), 1);
    EXPECT_EQ(ComHostGetMessage(&message, 0), 1);
    EXPECT_EQ(ComClose(5), 1);
}

// Of a process without descriptors the host has none for a wake, and below that it cannot poll.
TEST(Wake, WithoutDescriptorsWaitsRestAndEndInTime) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizers look at memory through descriptors of their own";
#endif
    test::Pty far;
    ComHostMapDevice(5, far.slavePath().c_str());
    ASSERT_EQ(ComOpen("COM", 5, 9600, 8, 1, 1, 0, 0), 5);
    ComSetBackgroundTimeout(5, 0);
    ComHostMessage message;
    ComSetNotifyThreadMessageAnyChar(5, ComHostThreadId());
    ComHostGetMessage(&message, 100); // a lookout from here on
    const test::Limit descriptors(RLIMIT_NOFILE);
    std::atomic<uint32_t> sleeper{0};
    std::thread other([&] {
        descriptors.set(3);
        EXPECT_LT(Wake::ofThisThread()->descriptor(), 0);
        EXPECT_EQ(message::descriptor(), -1);
        sleeper = thread::currentId();
        ComHostMessage got;
        EXPECT_EQ(ComHostGetMessage(&got, -1), 1);
    });
    EXPECT_TRUE(test::eventually([&] { return sleeper != 0; }));
    descriptors.set(1);
    char bytes[4];
    const auto used = test::processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [&] {
        EXPECT_EQ(ComHostGetMessage(&message, 300), 0);
        EXPECT_EQ(ComReadTimed(5, bytes, 4, 30), 0);
        far.write("late");
        EXPECT_EQ(ComReadTimed(5, bytes, 4, 2000), 4);
        EXPECT_TRUE(message::postToThread(sleeper, 1, 0, 0));
        other.join();
        EXPECT_EQ(ComClose(5), 1);
    });
    descriptors.lift();
    EXPECT_LT(used, std::chrono::milliseconds(200));
}

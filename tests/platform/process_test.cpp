// Programs, threads and memory of the host.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/error_text.h"
#include "platform/message_box.h"
#include "platform/process.h"
#include "platform/signal.h"
#include "platform/thread.h"

using namespace brisolt;

TEST(Process, StartedProgramsRunUnblockedAndLeaveNoZombie) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::string script =
        "printf '%s ' \"$0\"; grep SigBlk /proc/self/status; ls -l /proc/self/fd | grep -c eventfd";
    Signal ours; // must not reach the program
    int out = dup(STDOUT_FILENO);
    fflush(stdout);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    sigset_t everything, before;
    sigfillset(&everything);
    pthread_sigmask(SIG_SETMASK, &everything, &before);
    process::startDetached("sh", "-c", script.c_str());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    dup2(out, STDOUT_FILENO);
    close(out);
    std::string all(200, '\0');
    FILE* end = fdopen(ends[0], "r");
    all.resize(fread(all.data(), 1, all.size(), end));
    EXPECT_EQ(all, "sh SigBlk:\t0000000000000000\n0\n");
    fclose(end);

    process::startDetached("/no/such/program", nullptr, "ignored");
    process::startDetached(nullptr, "x", "y");
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Process, FlushingDoesNotWaitForAThreadThatReadsTheTerminal) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    int in = dup(STDIN_FILENO);
    dup2(ends[0], STDIN_FILENO);
    std::thread reader([] { EXPECT_EQ(getchar(), 'x'); });
    while (ftrylockfile(stdin) == 0) {
        funlockfile(stdin);
        std::this_thread::yield();
    }
    process::flushStreams(); // hangs when it waits
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    reader.join();
    dup2(in, STDIN_FILENO);

    FILE* file = tmpfile();
    fputs("buffered", file);
    // The reader has let go, but the flush that stood behind it may not have heard of that yet.
    for (int tries = 0; tries < 1000 && lseek(fileno(file), 0, SEEK_END) != 8; ++tries) {
        process::flushStreams();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(lseek(fileno(file), 0, SEEK_END), 8);
    fclose(file);
}

TEST(Threads, StartDetachedNamedAndWithoutTheProgramsSignals) {
    static std::atomic<bool> done{false};
    const auto look = [](void*) {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        EXPECT_EQ(sigismember(&blocked, SIGTERM), 1);
        EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
        char name[16];
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "a name that is ");
        done = true;
    };
    ASSERT_TRUE(thread::start(look, nullptr, "a name that is too long"));
    while (!done)
        std::this_thread::yield();
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0);
}

// The program's thread-local data comes out of the stack of each thread, and what its callbacks need does, too.
TEST(Threads, HaveAStackBesideTheThreadLocalData) {
    thread_local char data[300'000];
    std::atomic<bool> done{false};
    auto useBoth = [](void* argument) {
        volatile char locals[800'000];
        for (std::size_t i = 0; i < sizeof locals; i += 4096)
            locals[i] = 1;
        for (char& byte : data)
            byte = locals[0];
        *static_cast<std::atomic<bool>*>(argument) = true;
    };
    ASSERT_TRUE(thread::start(useBoth, &done, "big"));
    while (!done)
        std::this_thread::yield();

    thread::failStarts(1);
    EXPECT_FALSE(thread::start(useBoth, &done, "none"));
    EXPECT_EQ(errorText(), "cannot start the thread none: Resource temporarily unavailable");
}

TEST(MessageBox, GoesToStandardErrorAsOneLine) {
    testing::internal::CaptureStderr();
    messageBox::show(nullptr, nullptr);
    messageBox::show("two\nlines", "caption");
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with("caption: two lines\n"));
}

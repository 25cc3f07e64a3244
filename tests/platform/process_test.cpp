// Programs, threads and memory of the host.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include "api/brisolt_host.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "platform/message_box.h"
#include "platform/process.h"
#include "platform/signal.h"
#include "platform/thread.h"

using namespace brisolt;

namespace {

std::string readAll(int descriptor) {
    std::string all;
    char part[256];
    for (ssize_t count; (count = read(descriptor, part, sizeof part)) > 0;)
        all.append(part, static_cast<size_t>(count));
    return all;
}

} // namespace

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
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    process::startDetached("sh", "-c", script.c_str());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    dup2(out, STDOUT_FILENO);
    close(out);
    EXPECT_EQ(readAll(ends[0]), "sh SigBlk:\t0000000000000000\n0\n");
    close(ends[0]);

    process::startDetached("/no/such/program", nullptr, "ignored");
    process::startDetached(nullptr, "x", "y");
    errno = 0;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(Process, RunsCommandLines) {
    EXPECT_EQ(WEXITSTATUS(process::runCommand("exit 7")), 7);
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
    struct Seen {
        std::atomic<bool> done{false};
        char name[16] = "";
        bool term = false;
        bool fault = true;
        uint32_t id = 0;
    } seen;
    auto look = [](void* argument) {
        auto& to = *static_cast<Seen*>(argument);
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        to.term = sigismember(&blocked, SIGTERM) == 1;
        to.fault = sigismember(&blocked, SIGSEGV) == 1;
        pthread_getname_np(pthread_self(), to.name, sizeof to.name);
        to.id = thread::currentId();
        thread::setPriority(to.id, thread::Priority::lowest);
        to.done = true;
    };
    thread::failStarts(1);
    EXPECT_FALSE(thread::start(look, &seen, "x"));
    ASSERT_TRUE(thread::start(look, &seen, "a name that is too long"));
    while (!seen.done)
        std::this_thread::yield();
    EXPECT_STREQ(seen.name, "a name that is ");
    EXPECT_TRUE(seen.term);
    EXPECT_FALSE(seen.fault);
    EXPECT_NE(seen.id, thread::currentId());
    sigset_t mine;
    pthread_sigmask(SIG_SETMASK, nullptr, &mine);
    EXPECT_EQ(sigismember(&mine, SIGTERM), 0);
}

TEST(Memory, IsZeroedRefusedAndFailsOnDemand) {
    auto* block = static_cast<unsigned char*>(memory::allocateZeroed(100'000));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[0] | block[50'000] | block[99'999], 0);
    block[99'999] = 1;
    memory::release(block, 100'000);
    EXPECT_EQ(memory::allocateZeroed(0), nullptr);
    EXPECT_EQ(memory::allocateZeroed(SIZE_MAX), nullptr);
    memory::release(nullptr, 5);

    memory::failAllocations(1, 2);
    std::string went;
    for (int i = 0; i < 4; ++i) {
        void* made = memory::allocateZeroed(10);
        went += made ? 'y' : 'n';
        memory::release(made, 10);
    }
    EXPECT_EQ(went, "ynny");
}

TEST(FunctionWords, AreSmallStableAndReversible) {
    auto first = [] { std::puts("first"); };
    auto second = [] { std::puts("second"); };
    EXPECT_EQ(ComHostFunctionWord(nullptr), 0u);
    uint32_t word = ComHostFunctionWord(first);
    EXPECT_EQ(word, 1u);
    EXPECT_EQ(ComHostFunctionWord(second), 2u);
    EXPECT_EQ(ComHostFunctionWord(first), word);
    EXPECT_EQ(ComHostWordFunction(2), static_cast<void (*)()>(second));
    for (uint32_t unknown : {0u, 3u, 0xFFFFFFFFu})
        EXPECT_EQ(ComHostWordFunction(unknown), nullptr);
}

TEST(MessageBox, GoesToTheProgramElseToStandardErrorAsOneLine) {
    static std::string shown;
    ComHostSetMessageBox(
        [](const char* text, const char* caption) { shown = std::string(caption) + "/" + text; });
    messageBox::show("text", "caption");
    messageBox::show(nullptr, nullptr);
    EXPECT_EQ(shown, "/");
    ComHostSetMessageBox(nullptr);
    testing::internal::CaptureStderr();
    messageBox::show("two\nlines", "caption");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "caption: two lines\n");
}

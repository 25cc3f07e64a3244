// Debug output: where it is asked for, nowhere else, and never in the program's way.
#include "platform/error_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/descriptor_io.h"
#include "support/files.h"

using brisolt::debugOutput;
using namespace brisolt::test;

namespace {

/// The place is looked up once a process, and each test has one of its own.
void sendTo(const std::string& place) {
    setenv("BRISOLT_DEBUG_OUTPUT", place.c_str(), 1);
}

std::string stamped(const std::string& text) {
    return "brisolt[" + std::to_string(getpid()) + "]: " + text + "\n";
}

void expectFirst(int descriptor, const std::string& text) {
    EXPECT_EQ(readFrom(descriptor, stamped(text).size(), std::chrono::seconds(10)), stamped(text));
}

} // namespace

TEST(DebugOutput, GoesToTheEndOfTheFileThatWasNamed) {
    const TempDir dir;
    std::filesystem::current_path(dir.path());
    std::ofstream("lines") << "before\n";
    sendTo("lines");
    errno = 77;
    debugOutput("\r\n one");
    EXPECT_EQ(errno, 77);
    // Neither the directory nor the variable is looked at again.
    std::filesystem::current_path("/");
    sendTo("stderr");
    debugOutput("\r\n");
    brisolt::setErrorText("two");
    EXPECT_EQ(contentsOf(dir.file("lines")), "before\n" + stamped("one") + stamped("two"));
}

// Pipes and sockets whose reader is not there yet, reads nothing, or has gone.
TEST(DebugOutput, IsLostWhereItWouldWaitOrFail) {
    const TempDir dir;
    ASSERT_EQ(mkfifo(dir.file("fifo").c_str(), 0600), 0);
    sendTo(dir.file("fifo"));
    debugOutput("nobody reads");
    const int reader = open(dir.file("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    for (int i = 0; i < 5000; ++i)
        debugOutput("more than a pipe holds");
    expectFirst(reader, "more than a pipe holds");
    close(reader);
    debugOutput("nobody reads again");
}

TEST(DebugOutput, OnStandardErrorHoldsUpNobody) {
    sendTo("stderr");
    for (const bool socket : {false, true}) {
        std::array<int, 2> ends{};
        ASSERT_EQ(socket ? socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) : pipe(ends.data()), 0);
        fcntl(ends[0], F_SETFL, O_NONBLOCK);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        for (int i = 0; i < 20000; ++i)
            debugOutput("more than either holds");
        expectFirst(ends[0], "more than either holds");
        EXPECT_EQ(fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0) << "the program's own writes wait as before";
        close(ends[0]);
        debugOutput("the reader is gone");
    }
}

TEST(DebugOutput, IsNowhereUnlessAskedFor) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    dup2(ends[1], STDERR_FILENO);
    sendTo("");
    debugOutput("a line");
    EXPECT_EQ(readToQuiet(ends[0], std::chrono::milliseconds(1)), "");
}

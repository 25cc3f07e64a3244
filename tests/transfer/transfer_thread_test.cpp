// Transfers on a thread of their own, how they end, and that nobody is left behind.
#include <atomic>
#include <future>

#include "platform/thread.h"
#include "transfer/quick_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 6, farNumber = 7;
constexpr int32_t running = 10000, finished = 10001, failed = 10002;

bool ends(int32_t port, int32_t outcome) {
    return eventually([=] { return ComGetFileCompletionState(port) == outcome; }, 20s);
}

struct TransferThread : TransferTest {};

TEST_F(TransferThread, AFileGoesFromPortToPortWhileItsProgressIsWatched) {
    const QuickPort in(number, "null-modem:threads"), out(farNumber, "null-modem:threads");
    std::string text;
    for (int32_t i = 0; i < 100; ++i)
        text += "line " + std::to_string(i) + "\r\n";
    ASSERT_EQ(ComRA_Thread(in, files.path("in").c_str()), 1);
    EXPECT_EQ(ComGetFileCompletionState(in), running);
    EXPECT_EQ(ComGetCarrierLossProtocol(in), 201);
    ASSERT_EQ(ComSA_Thread(out, files.make("out", text).c_str()), 1);
    for (int32_t bytes = 0; ComGetFileCompletionState(in) == running; std::this_thread::sleep_for(1ms)) {
        const int32_t before = std::exchange(bytes, ComGetBytes(in));
        EXPECT_GE(bytes, before);
    }
    EXPECT_EQ(ComGetFileCompletionState(in), finished);
    EXPECT_TRUE(ends(out, finished));
    EXPECT_EQ(files.bytes("in"), text);
    EXPECT_EQ(ComGetBytes(in), static_cast<int32_t>(text.size()));
    EXPECT_EQ(files.opened(), 0);
}

TEST_F(TransferThread, WhatCannotStartOrFailsTellsWhy) {
    const std::string path = files.make("text", "text"), missing = files.path("missing");
    EXPECT_EQ(ComSA_Thread(number, path.c_str()), -1) << "not open";
    {
        const FastClock fast(50); // the close of a port in direct mode takes seconds
        const OpenPort direct(number, "null-modem:direct", {.name = "THUNK"});
        EXPECT_EQ(ComSA_Thread(direct, path.c_str()), -1);
        EXPECT_EQ(ComGetFileCompletionState(direct), 0);
    }
    const QuickPort port(number, "null-modem:starts");
    const auto expectFailed = [&](int32_t result) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(ComGetFileCompletionState(port), failed);
        ComShowClear(port);
    };
    expectFailed(ComSA_Thread(port, missing.c_str()));
    expectFailed(ComRA_Thread(port, "/no/such/folder/file"));
    thread::failStarts(1);
    expectFailed(ComSA_Thread(port, path.c_str()));
    EXPECT_EQ(files.opened(), 0);
    ASSERT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1);
    EXPECT_EQ(ComSA_Thread(port, path.c_str()), -1);
    EXPECT_EQ(ComGetFileCompletionState(port), running) << "the one that runs is left alone";
    EXPECT_EQ(ComRA_Abort(port), 1);
    const QuickPort far(farNumber, "null-modem:starts");
    ASSERT_EQ(ComRA_Thread(port, "/dev/full"), 1);
    send(far, "text");
    EXPECT_TRUE(ends(port, failed));
    EXPECT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1) << "free for the next";
}

TEST_F(TransferThread, AnAbortEndsASendAndLeavesAReceiveOpen) {
    const QuickPort port(number, "null-modem:abort"), far(farNumber, "null-modem:abort");
    const std::string path = files.make("text", std::string(100000, 'x'));
    ASSERT_EQ(ComSA_Thread(port, path.c_str()), 1);
    EXPECT_EQ(ComA_Thread_Abort(port), 1);
    EXPECT_TRUE(ends(port, failed));
    EXPECT_TRUE(eventually([&] { return files.opened() == 0; }));
    ASSERT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1);
    EXPECT_EQ(ComA_Thread_Abort(port), 1);
    EXPECT_TRUE(ends(port, failed));
    EXPECT_EQ(files.opened(), 1);
    EXPECT_EQ(ComRA_Abort(port), 1);
    EXPECT_EQ(files.opened(), 0);

    // An abort of the transfer itself is told, too; a next one at once is not touched by the old thread.
    ASSERT_EQ(ComSA_Thread(port, path.c_str()), 1);
    EXPECT_EQ(ComSA_Abort(port), 1);
    EXPECT_EQ(ComGetFileCompletionState(port), failed);
    ASSERT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1);
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(ComGetFileCompletionState(port), running);
}

std::atomic<int32_t> asked{0}; ///< reads of the port that got nothing

// What the far end still says to a transfer that was stopped is discarded, 1 and 2 s later; unless somebody
// else listens by then.
TEST_F(TransferThread, WhatTheNextTransferReceivesIsItsOwn) {
    const FastClock fast(10);
    const std::string text = files.make("text", std::string(100000, 'x')), in = files.path("in");
    for (const std::string next : {"steps", "thread", "call"}) {
        const QuickPort port(number, "null-modem:next"), far(farNumber, "null-modem:next");
        port.record().flushDelay = 1;
        ASSERT_EQ(ComSA_Thread(port, text.c_str()), 1);
        EXPECT_EQ(ComA_Thread_Abort(port), 1);
        EXPECT_TRUE(ends(port, failed));
        const uint32_t stopped = clock::ticks();
        asked = 0; // from here on all stays in the ring
        ComSetComReadFunc(port, [](int32_t, void*, int32_t) { return ++asked, 0; });
        std::future<int32_t> received;
        if (next == "call")
            received = std::async(std::launch::async, ComRecvA, number, in.c_str(), 27, 26, 1000);
        else
            EXPECT_EQ(next == "steps" ? ComRA_Start(port, in.c_str(), 27, 26, 25)
                                      : ComRA_Thread(port, in.c_str()),
                      1);
        EXPECT_TRUE(next != "call" || eventually([] { return asked > 0; }));
        send(far, "kept\x1a");
        EXPECT_TRUE(eventually([&] { return ComStatus(port) == 5 && clock::ticks() - stopped > 3000; }));
        ComSetComReadFunc(port, nullptr);
        EXPECT_TRUE(next == "call"     ? received.get() == 2
                    : next == "thread" ? ends(port, finished)
                                       : ComRA_Next(port) == 2);
        EXPECT_EQ(files.bytes("in"), "kept");
    }
}

TEST_F(TransferThread, ACloseInTheMiddleEndsIt) {
    const std::string path = files.make("text", std::string(100000, 'x')), in = files.path("in");
    const FastClock fast;
    for (const bool sending : {true, false})
        for (const bool aborted : {true, false}) {
            QuickPort port(number, "null-modem:close"); // a third end would be refused
            const QuickPort far(farNumber, "null-modem:close");
            port.record().charDelay = INT32_MAX; // the thread is in the middle of a step
            ASSERT_EQ(sending ? ComSA_Thread(port, path.c_str()) : ComRA_Thread(port, in.c_str()), 1);
            if (aborted)
                EXPECT_EQ(ComRA_Abort(port), 1);
            else
                std::this_thread::sleep_for(60ms);
            EXPECT_EQ(port.close(), 1); // or the test takes for ever
            EXPECT_TRUE(eventually([&] { return files.opened() == 0; }));
        }
}

} // namespace
} // namespace brisolt::test

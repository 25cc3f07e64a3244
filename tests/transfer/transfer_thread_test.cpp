// Transfers on a thread of their own, how they end, and that nobody is left behind.
#include <array>
#include <atomic>
#include <thread>

#include "platform/thread.h"
#include "support/pty.h"
#include "transfer/files.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 6, farNumber = 7;
constexpr int32_t running = 10000, finished = 10001, failed = 10002;

bool ends(int32_t port, int32_t outcome) {
    return eventually([=] { return ComGetFileCompletionState(port) == outcome; }, 20s);
}

class TransferThread : public TransferTest {};

TEST_F(TransferThread, AFileGoesFromPortToPortWhileItsProgressIsWatched) {
    const QuickPort in(number, "null-modem:threads"), out(farNumber, "null-modem:threads");
    std::string text, arrived; // with a carriage return before every line feed
    for (int32_t line = 0; line < 60; ++line) {
        text += "line " + std::to_string(line) + (line % 2 == 0 ? "\r\n" : "\n");
        arrived += "line " + std::to_string(line) + "\r\n";
    }
    ASSERT_EQ(ComRA_Thread(in, files.path("in").c_str()), 1);
    EXPECT_EQ(ComGetFileCompletionState(in), running);
    EXPECT_EQ(ComGetCarrierLossProtocol(in), 201);
    ASSERT_EQ(ComSA_Thread(out, files.make("out", text).c_str()), 1);
    int32_t bytes = 0;
    while (ComGetFileCompletionState(in) == running) {
        const int32_t more = ComGetBytes(in);
        EXPECT_GE(more, bytes);
        bytes = more;
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(ComGetFileCompletionState(in), finished);
    EXPECT_TRUE(ends(out, finished));
    EXPECT_EQ(files.bytes("in"), arrived);
    EXPECT_EQ(ComGetBytes(in), static_cast<int32_t>(arrived.size()));
    EXPECT_FALSE(files.isOpen("in"));
    EXPECT_FALSE(files.isOpen("out"));
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
    EXPECT_EQ(ComSA_Thread(port, missing.c_str()), -1);
    EXPECT_EQ(ComGetFileCompletionState(port), failed);
    ComShowClear(port);
    EXPECT_EQ(ComRA_Thread(port, "/no/such/folder/file"), -1);
    EXPECT_EQ(ComGetFileCompletionState(port), failed);
    thread::failStarts(1);
    EXPECT_EQ(ComSA_Thread(port, path.c_str()), -1);
    EXPECT_EQ(ComGetFileCompletionState(port), failed);
    EXPECT_FALSE(files.isOpen("text"));

    ASSERT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1);
    EXPECT_EQ(ComRA_Thread(port, files.path("other").c_str()), -1);
    EXPECT_EQ(ComSA_Thread(port, path.c_str()), -1);
    EXPECT_EQ(ComGetFileCompletionState(port), running) << "the one that runs is left alone";
    EXPECT_EQ(ComRA_Abort(port), 1);

    const QuickPort far(farNumber, "null-modem:starts");
    ASSERT_EQ(ComRA_Thread(port, "/dev/full"), 1);
    write(far, "text");
    EXPECT_TRUE(ends(port, failed));
    EXPECT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1) << "free for the next";
}

TEST_F(TransferThread, AnAbortEndsASendAndLeavesAReceiveOpen) {
    const QuickPort port(number, "null-modem:abort"), far(farNumber, "null-modem:abort");
    const std::string path = files.make("text", std::string(100000, 'x'));
    ASSERT_EQ(ComSA_Thread(port, path.c_str()), 1);
    EXPECT_EQ(ComA_Thread_Abort(port), 1);
    EXPECT_TRUE(ends(port, failed));
    EXPECT_TRUE(eventually([&] { return !files.isOpen("text"); }));

    ASSERT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1);
    EXPECT_EQ(ComA_Thread_Abort(port), 1);
    EXPECT_TRUE(ends(port, failed));
    EXPECT_TRUE(files.isOpen("in"));
    EXPECT_EQ(ComRA_Thread(port, files.path("in").c_str()), -1);
    EXPECT_EQ(ComRA_Abort(port), 1);
    EXPECT_FALSE(files.isOpen("in"));

    // An abort of the transfer itself is told, too; a next one at once is not touched by the old thread.
    ASSERT_EQ(ComSA_Thread(port, path.c_str()), 1);
    EXPECT_EQ(ComSA_Abort(port), 1);
    EXPECT_EQ(ComGetFileCompletionState(port), failed);
    ASSERT_EQ(ComRA_Thread(port, files.path("in").c_str()), 1);
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(ComGetFileCompletionState(port), running);
}

TEST_F(TransferThread, ACloseInTheMiddleEndsIt) {
    const std::string path = files.make("text", std::string(100000, 'x'));
    for (const auto& [sending, aborted] :
         {std::pair{true, false}, std::pair{false, false}, std::pair{true, true}, std::pair{false, true}}) {
        QuickPort port(number, "null-modem:close"); // a third end would be refused
        const QuickPort far(farNumber, "null-modem:close");
        port.record().charDelay = INT32_MAX; // the thread is in the middle of a step
        ASSERT_EQ(sending ? ComSA_Thread(port, path.c_str()) : ComRA_Thread(port, files.path("in").c_str()),
                  1);
        if (aborted)
            EXPECT_EQ(ComRA_Abort(port), 1);
        else
            std::this_thread::sleep_for(60ms);
        const auto begun = SteadyClock::now();
        int32_t result = 0;
        std::thread([&] { result = port.close(); }).join();
        EXPECT_EQ(result, 1);
        EXPECT_LT(SteadyClock::now() - begun, 5s);
        EXPECT_TRUE(eventually([&] { return !files.isOpen("text") && !files.isOpen("in"); }));
    }
}

TEST_F(TransferThread, ThreadsStartStepAbortAndCloseAsTheyLike) {
    const FastClock fast(200);
    const std::string path = files.make("text", std::string(3000, 'x'));
    ComHostMapDevice(number, "null-modem:race");
    ComHostMapDevice(farNumber, "null-modem:race");
    std::atomic<bool> over{false};
    std::atomic<int32_t> started{0};
    std::vector<std::thread> threads;
    const auto loop = [&](int32_t port, const std::function<void()>& work) {
        threads.emplace_back([=, &over] {
            for (; !over; std::this_thread::sleep_for(1ms)) {
                if (ComOpenState(port) != 1)
                    ComOpen("COM", port, 9600, 8, 1, 1, 2048, 2048);
                work();
            }
        });
    };
    for (const int32_t port : {number, farNumber}) {
        const std::string in = files.path("in" + std::to_string(port));
        loop(port, [=, &started] {
            started += ComSA_Thread(port, path.c_str()) == 1 ? 1 : 0;
            started += ComRA_Thread(port, in.c_str()) == 1 ? 1 : 0;
        });
        loop(port, [=] {
            CInitSndAPkt(port, path.c_str(), 100);
            CSendAPkt(port);
            CRecvAPkt(port);
            ComA_Thread_Abort(port);
        });
        loop(port, [=] {
            ComShowClear(port);
            CTermAPkt(port);
        });
        loop(port, [=] {
            std::this_thread::sleep_for(20ms);
            ComClose(port);
        });
    }
    std::this_thread::sleep_for(2s);
    over = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_GT(started, 0);
    ComClose(number);
    ComClose(farNumber);
    EXPECT_TRUE(eventually([&] { return !files.isOpen("text"); })) << "no transfer is left behind";
}

} // namespace
} // namespace brisolt::test

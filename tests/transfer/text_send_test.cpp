// Text files on their way out: in one call and step by step.
#include <future>

#include "port/scramble.h"
#include "support/scripted_driver.h"
#include "transfer/quick_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 6;
int32_t largestRead = 0, flushes = 0;

struct TextSend : TransferTest {
    Pty far;
    QuickPort port{number, far.slavePath()};
};
/// At a line that takes only what it is told to.
struct TextSendHeldOff : TransferTest {
    ScriptedDriver line;
    QuickPort port{number, line.path(), 2048};
};

TEST_F(TextSend, APeerThatHasGoneIsAFailure) {
    for (const bool lossless : {true, false}) {
        Pty gone;
        const QuickPort lost(number + 1, gone.slavePath());
        ComHostSetLossless(lost, lossless ? 1 : 0);
        const std::string path = files.make("text", pattern(200000));
        gone.close();
        EXPECT_EQ(ComSendA(lost, path.c_str()), -1);
        EXPECT_EQ(send(lost, path, 1000), -1);
        ASSERT_EQ(ComSA_Thread(lost, path.c_str()), 1);
        EXPECT_TRUE(eventually([&] { return ComGetFileCompletionState(lost) == 10002; }));
    }
}

TEST_F(TextSend, LineEndsAreShapedAlikeInBothStyles) {
    const std::string every = pattern(2000); // all byte values
    // What is set, a file, what it is on the line, and how many carriage returns the call in one piece does not count.
    const std::tuple<int32_t, int32_t, std::string, std::string, int32_t> cases[] = {
        {0, 1, "\nA\r\nB\n\nC\r", "\r\nA\r\nB\r\n\r\nC\r", 3},
        {1, 1, "\nA\r\nB\n\n", "A\rB", 0},
        {1, 0, "\n\n", "", 0},
        {0, 0, every, every, 0}};
    for (const auto& [stripLF, addCR, file, line, uncounted] : cases) {
        port.record().stripLF = stripLF;
        port.record().addCR = addCR;
        const std::string path = files.make("text", file);
        const auto size = static_cast<int32_t>(line.size());
        for (const int32_t chunk : {1, 25, 9999, 100000}) {
            ComHostSetLossless(port, chunk % 2); // with or without
            EXPECT_EQ(send(port, path, chunk), 1);
            EXPECT_EQ(ComGetBytes(port), size);
            EXPECT_EQ(far.read(line.size() + 1), line + endMarker);
        }
        const FastClock fast(10);
        ComShowClear(port);
        EXPECT_EQ(ComSendA(port, path.c_str()), 1);
        EXPECT_EQ(ComGetBytes(port), size - uncounted);
        EXPECT_EQ(far.read(line.size()), line);
    }
    EXPECT_EQ(far.readToQuiet(), "") << "no end marker after a send in one call";
    const std::string path = files.make("text", "x");
    for (const bool steps : {true, false}) {
        far.write("nobody wants this");
        ASSERT_TRUE(eventually([&] { return ComStatus(port) == 17; }));
        EXPECT_EQ(steps ? send(port, path, 25) : ComSendA(port, path.c_str()), 1);
        EXPECT_EQ(ComStatus(port), 0) << "what is received meanwhile is thrown away";
    }
    largestRead = 0;
    ComSetComReadFunc(port, [](int32_t, void*, int32_t count) {
        largestRead = std::max(largestRead, count);
        return 0;
    });
    EXPECT_EQ(ComSendA(port, path.c_str()), 1);
    EXPECT_EQ(largestRead, 1) << "it need not know to give more";
}

TEST_F(TextSend, AStepQueuesAChunkOrOneByteMore) {
    const std::string path = files.make("text", std::string(24, 'x') + "\n" + std::string(24, 'y') + "z\n\n");
    ASSERT_EQ(CInitSndAPkt(port, path.c_str(), 25), 1);
    EXPECT_EQ(ComGetCarrierLossProtocol(port), 101);
    for (const auto& [result, bytes] : {std::pair{5, 26}, {5, 51}, {1, 55}}) {
        EXPECT_EQ(CSendAPkt(port), result);
        EXPECT_EQ(ComGetBytes(port), bytes);
    }
    EXPECT_EQ(ComGetCarrierLossProtocol(port), 100);
    for (const int32_t chunk : {0, -7}) { // a byte of the file each, then the end
        EXPECT_EQ(firstStep(port, files.make("text", "ab"), chunk), 5);
        EXPECT_EQ(CSendAPkt(port), 5);
        EXPECT_EQ(CSendAPkt(port), 1);
    }
    far.readToQuiet();
    EXPECT_EQ(firstStep(port, files.make("text", std::string(12000, 'x')), INT32_MAX), 5);
    EXPECT_EQ(ComGetBytes(port), 9999) << "the largest chunk";
}

// Scrambled, so that a byte offered twice shows.
TEST_F(TextSendHeldOff, NoByteIsLost) {
    port.record().addCR = 0;
    ComSetSecurity(port, 1);
    line.limitRoom(500);
    const std::string text = pattern(40000), path = files.make("text", text);
    ASSERT_EQ(CInitSndAPkt(port, path.c_str(), 9999), 1);
    for (int32_t i = 0; i < 10; ++i)
        ASSERT_EQ(CSendAPkt(port), 5);
    EXPECT_EQ(ComGetBytes(port), 9999) << "no second chunk before the first has gone";
    line.limitRoom(ScriptedDriver::unlimited);
    EXPECT_EQ(allSteps(CSendAPkt, port), 1);
    ASSERT_TRUE(eventually([&] { return ComOutBufStatus(port) == 0; }));
    std::string sent = line.written();
    for (char& byte : sent)
        byte = static_cast<char>(unscrambleByte(port.record().scrambleKey, static_cast<uint8_t>(byte)));
    EXPECT_TRUE(sent == text + endMarker);
}

TEST_F(TextSendHeldOff, EscapesEndAStep) {
    ComPortSetEscapeChar(port, 27);
    line.limitRoom(0);
    const std::string path = files.make("text", std::string(20000, 'x'));
    for (const bool twice : {true, false}) {
        ComFlushOutBuf(port);
        EXPECT_EQ(firstStep(port, path, 9999), 5);
        ComHostPostChar(ComHostThreadId(), 27);
        EXPECT_EQ(CSendAPkt(port), 5) << "the end marker has to wait, too";
        if (twice)
            ComHostPostChar(ComHostThreadId(), 27);
        else
            line.limitRoom(ScriptedDriver::unlimited);
        EXPECT_EQ(allSteps(CSendAPkt, port), 1);
        EXPECT_EQ(files.opened(), 0);
    }
    ASSERT_TRUE(eventually([&] { return ComOutBufStatus(port) == 0; }));
    EXPECT_EQ(line.written(), std::string(9999, 'x') + endMarker);
}

TEST_F(TextSendHeldOff, InOneCallItWaitsForRoomUntilItIsCancelled) {
    const FastClock fast(50);
    port.record().addCR = 0;
    const std::string text = pattern(2400), path = files.make("text", text);
    line.limitRoom(100);
    const auto fillLine = [&] {
        auto sending = std::async(std::launch::async, [&] { return ComSendA(port, path.c_str()); });
        EXPECT_TRUE(eventually([&] { return ComOutBufStatus(port) == 2048; }));
        EXPECT_EQ(sending.wait_for(100ms), std::future_status::timeout);
        return sending;
    };
    auto sending = fillLine();
    line.limitRoom(ScriptedDriver::unlimited);
    EXPECT_EQ(sending.get(), 1);
    EXPECT_TRUE(eventually([&] { return line.written() == text; }));
    line.limitRoom(0);
    sending = fillLine();
    EXPECT_EQ(ComCancel(port), 1);
    EXPECT_EQ(sending.get(), -1);
    EXPECT_EQ(files.opened(), 0);
    port.close();
}

TEST_F(TextSend, PausesOfLessThanNothingAreNoneAndLongOnesAreEnded) {
    const std::string path = files.make("text", "a\nb\n");
    PortRecord& record = port.record();
    record.charDelay = -1;
    record.lineDelay = INT32_MIN;
    EXPECT_EQ(ComSendA(port, path.c_str()), 1);
    EXPECT_EQ(send(port, path, 2), 1);
    for (const auto pause : {&PortRecord::lineDelay, &PortRecord::charDelay}) {
        record.*pause = INT32_MAX;
        ASSERT_EQ(CInitSndAPkt(port, path.c_str(), 2), 1);
        auto stepping = std::async(std::launch::async, [&] { return allSteps(CSendAPkt, port); });
        EXPECT_EQ(stepping.wait_for(600ms), std::future_status::timeout); // or its turn would be ours
        EXPECT_EQ(CSendAPkt(port), 5) << "it is somebody else's turn";
        record.lineDelay = 0; // the abort's own pause
        EXPECT_EQ(CTermAPkt(port), 1);
        EXPECT_EQ(stepping.get(), -1);
        EXPECT_EQ(files.opened(), 0);
    }
    auto sending = std::async(std::launch::async, [&] { return ComSendA(number, path.c_str()); });
    EXPECT_EQ(sending.wait_for(100ms), std::future_status::timeout);
    EXPECT_EQ(port.close(), 1); // that a step ends so is seen on the transfer's thread
    EXPECT_EQ(sending.get(), -1);
    EXPECT_EQ(files.opened(), 0);
}

TEST_F(TextSend, EscapeAndQuitEndAStepInGoodOrder) {
    ComPortSetEscapeChar(port, 27);
    const std::string path = files.make("text", std::string(100, 'x'));
    for (const int32_t delay : {0, 60000}) { // seen between two bytes, and within a pause
        port.record().charDelay = delay;
        ComHostPostChar(ComHostThreadId(), 'a');
        ComHostPostChar(ComHostThreadId(), 27);
        EXPECT_EQ(firstStep(port, path, 25), 1);
        EXPECT_EQ(far.read(2), std::string("x") + endMarker);
        EXPECT_EQ(CSendAPkt(port), -1) << "it is over";
    }
    ComHostPostQuit(ComHostThreadId());
    EXPECT_EQ(firstStep(port, path, 25), 1);
    ComHostMessage message{};
    EXPECT_EQ(ComHostGetMessage(&message, 0), -1) << "the request stays pending";
}

TEST_F(TextSend, AFunctionWithinAStepMayAbortOrStep) {
    const std::string path = files.make("text", std::string(100, 'x'));
    std::vector<int32_t> results;
    const ComHostWindowFunc function = [](void* to, int32_t, uint32_t message, uintptr_t, intptr_t) {
        const int32_t result = message == 0x500 ? CSendAPkt(number) : CTermAPkt(number);
        static_cast<std::vector<int32_t>*>(to)->push_back(result);
    };
    const int32_t window = ComHostCreateWindow(function, &results);
    ComHostPostMessage(window, 0x500, 0, 0);
    EXPECT_EQ(firstStep(port, path, 25), 5);
    EXPECT_EQ(far.read(25), std::string(25, 'x'));
    ComHostPostMessage(window, 0x501, 0, 0);
    EXPECT_EQ(CSendAPkt(port), -1);
    EXPECT_EQ(results, (std::vector<int32_t>{5, 1}));
    EXPECT_EQ(far.readToQuiet(), "") << "neither the rest of the chunk nor an end marker";
    EXPECT_EQ(files.opened(), 0);
    EXPECT_EQ(CInitSndAPkt(port, path.c_str(), 25), 1) << "the port is free for the next";
    ComHostDestroyWindow(window);
}

TEST_F(TextSend, WhatCannotBeSentIsAFailure) {
    const std::string path = files.make("text", "abc"), missing = files.path("missing");
    for (const char* bad : {"", missing.c_str(), "/tmp"}) {
        EXPECT_EQ(ComSendA(port, bad), -1);
        EXPECT_EQ(CInitSndAPkt(port, bad, 25), -1);
    }
    EXPECT_EQ(CSendAPkt(port), -1) << "none is open";
    ASSERT_EQ(ComSA_Start(port, path.c_str(), 1), 1);
    EXPECT_EQ(ComSA_Next(port), 5);
    EXPECT_EQ(CRecvAPkt(port), -1) << "none in that direction";
    EXPECT_EQ(CInitSndAPkt(port, path.c_str(), 2), -1);
    EXPECT_EQ(CInitRcvAPkt(port, missing.c_str(), 27, 26, 25), -1);
    EXPECT_FALSE(std::filesystem::exists(missing));
    EXPECT_EQ(ComGetBytes(port), 1) << "the one that is open is left alone";
    EXPECT_EQ(ComSA_Abort(port), 1);
    EXPECT_EQ(far.read(1), "a");
    const char* unreadable = "/proc/self/mem"; // its first byte cannot be read
    EXPECT_EQ(ComSendA(port, unreadable), -1);
    EXPECT_EQ(send(port, unreadable, 25), -1);
    EXPECT_EQ(far.readToQuiet(), "") << "what is not whole is not marked as ended";
    ComSetComFlushFunc(port, [](int32_t aborted) {
        EXPECT_EQ(CInitSndAPkt(aborted, "/no/such/folder/file", 25), -1);
        EXPECT_EQ(ComRA_Thread(aborted, "/no/such/folder/file"), -1);
        return ++flushes;
    });
    EXPECT_EQ(CTermAPkt(port), 1);
    EXPECT_EQ(flushes, 2) << "an abort under way discards on";
}

} // namespace
} // namespace brisolt::test

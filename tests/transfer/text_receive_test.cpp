// Text files on their way in: in one call, step by step, and what is read of them as text.
#include <future>

#include "brisolt_host.h"
#include "support/peer_process.h"
#include "support/pty.h"
#include "transfer/files.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 6, otherNumber = 16;

class TextReceive : public TransferTest {
protected:
    /// Bytes that wait in the port's ring.
    void feed(const std::string& bytes) {
        far.write(bytes);
        const auto all = static_cast<int32_t>(bytes.size());
        ASSERT_TRUE(eventually([&] { return ComStatus(port) == all; }));
    }
    int32_t start(int32_t receiver, const std::string& name, int32_t endChar = 26) {
        return CInitRcvAPkt(receiver, files.path(name).c_str(), 27, endChar, 25);
    }
    Pty far;
    QuickPort port{number, far.slavePath()};
};

TEST_F(TextReceive, AFileOfAnotherProcessArrivesWhole) {
    std::string text = pattern(300000);
    std::erase(text, endMarker);
    files.make("theirs", text + endMarker + "left over");
    for (const bool steps : {true, false}) {
        files.make("ours", "what was there before, and longer than nothing");
        PeerProcess peer(BRISOLT_TEST_PEER, {"send", std::to_string(far.master()), files.path("theirs")},
                         {.inherit = far.master()});
        ComShowClear(port);
        if (steps) {
            ASSERT_EQ(start(port, "ours"), 1);
            EXPECT_EQ(ComGetCarrierLossProtocol(port), 102);
            EXPECT_EQ(allSteps(CRecvAPkt, port).result, 2);
            EXPECT_EQ(ComGetCarrierLossProtocol(port), 100);
        } else {
            EXPECT_EQ(ComRecvA(port, files.path("ours").c_str(), 27, endMarker, 20), 2);
        }
        EXPECT_EQ(peer.wait(), 0);
        EXPECT_EQ(ComGetBytes(port), static_cast<int32_t>(text.size()));
        EXPECT_TRUE(files.bytes("ours") == text);
        EXPECT_FALSE(files.isOpen("ours"));
        Com_Flush(port, 0);
    }
}

TEST_F(TextReceive, AStepTakesAllThatWaitsAndEndsByTheEscape) {
    const std::string text(25000, 'x');
    feed(text + endMarker + "and more");
    ASSERT_EQ(start(port, "file"), 1);
    EXPECT_EQ(CRecvAPkt(port), 2);
    EXPECT_TRUE(files.bytes("file") == text);
    EXPECT_EQ(ComStatus(port), 0) << "what follows is discarded";

    ASSERT_EQ(start(port, "file"), 1);
    EXPECT_EQ(CRecvAPkt(port), 5) << "nothing waits";
    feed("ab");
    EXPECT_EQ(CRecvAPkt(port), 5);
    EXPECT_EQ(files.bytes("file"), "ab") << "others may read what has come so far";
    EXPECT_EQ(ComGetBytes(port), 2);
    feed(std::string(1, endMarker));
    EXPECT_EQ(ComRA_Next(port), 2);
    EXPECT_EQ(CRecvAPkt(port), -1) << "it is over";

    ComPortSetEscapeChar(port, 3);
    ASSERT_EQ(start(port, "file"), 1);
    ComHostPostChar(ComHostThreadId(), 27);
    EXPECT_EQ(CRecvAPkt(port), 5) << "the port's own escape counts, not the start's";
    ComHostPostChar(ComHostThreadId(), 3);
    EXPECT_EQ(CRecvAPkt(port), 1);
    EXPECT_FALSE(files.isOpen("file"));
}

TEST_F(TextReceive, AnEndCharacterMayBeAnyByteOrNone) {
    for (const int32_t endChar : {0, 255, 10}) {
        const std::string end(1, static_cast<char>(endChar));
        feed(std::string("text").append(end).append(end));
        ASSERT_EQ(start(port, "file", endChar), 1);
        EXPECT_EQ(CRecvAPkt(port), 2);
        EXPECT_EQ(files.bytes("file"), "text");
        feed("again" + end);
        EXPECT_EQ(ComRecvA(port, files.path("file").c_str(), 27, endChar, 20), 2);
        EXPECT_EQ(files.bytes("file"), "again");
    }
    const FastClock fast(50);
    const std::string all = pattern(512);
    for (const int32_t endChar : {-1, 256, 26 + 256}) {
        feed(all);
        ASSERT_EQ(start(port, "file", endChar), 1);
        const uint32_t begun = clock::ticks();
        EXPECT_EQ(allSteps([](int32_t p) { return ComSleepMS(p, 100), CRecvAPkt(p); }, port).result, 3);
        EXPECT_GT(clock::ticks() - begun, 20000U);
        EXPECT_EQ(files.bytes("file"), all) << "what had come stays";
    }
}

TEST_F(TextReceive, AScrambledPortFindsTheEndInTheClearText) {
    const QuickPort in(otherNumber, "null-modem:scrambled"), out(otherNumber + 1, "null-modem:scrambled");
    for (const int32_t end : {otherNumber, otherNumber + 1}) {
        ComSetFlow(end, 0);
        ComSetCode(end, "code");
        ComSetSecurity(end, 1);
    }
    out.record().addCR = 0;
    std::string text = pattern(20000);
    std::erase(text, endMarker);
    ASSERT_EQ(start(in, "in"), 1);
    auto sending =
        std::async(std::launch::async, [&] { return send(out, files.make("out", text), 500).result; });
    EXPECT_EQ(allSteps(CRecvAPkt, in).result, 2);
    EXPECT_EQ(sending.get(), 1);
    EXPECT_TRUE(files.bytes("in") == text);
}

/// ComRecvA on a thread of its own, whose identifier is known.
struct Receiving {
    explicit Receiving(const std::string& path) {
        std::promise<uint32_t> started;
        auto identifier = started.get_future();
        result = std::async(std::launch::async, [&started, path] {
            started.set_value(ComHostThreadId());
            return ComRecvA(number, path.c_str(), 27, 26, 1000);
        });
        thread = identifier.get();
    }
    uint32_t thread = 0;
    std::future<int32_t> result;
};

TEST_F(TextReceive, InOneCallItEndsAtOnceAndSleepsUntilThen) {
    const auto expectEnd = [&](int32_t expected, const std::function<void(Receiving&)>& happen) {
        Receiving receiving(files.path("file"));
        const auto used = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, sleepHalfASecond);
        EXPECT_LT(used, 200ms) << "it does not spin";
        happen(receiving);
        ASSERT_EQ(receiving.result.wait_for(10s), std::future_status::ready);
        EXPECT_EQ(receiving.result.get(), expected);
        EXPECT_FALSE(files.isOpen("file"));
    };
    expectEnd(1, [&](Receiving&) { ComCancel(port); });
    expectEnd(1, [&](Receiving& receiving) {
        ComHostPostChar(receiving.thread, 'x');
        ComHostPostChar(receiving.thread, 27);
    });
    expectEnd(1, [&](Receiving& receiving) { ComHostPostQuit(receiving.thread); });
    expectEnd(2, [&](Receiving&) { far.write("text\x1a"); });
    EXPECT_EQ(files.bytes("file"), "text");
    expectEnd(1, [&](Receiving&) { port.close(); });
}

TEST_F(TextReceive, AFullDiskAndABadFileAreFailures) {
    feed("text");
    EXPECT_EQ(ComRecvA(port, "/dev/full", 27, 26, 20), -1);
    Com_Flush(port, 0);
    feed("text");
    ASSERT_EQ(CInitRcvAPkt(port, "/dev/full", 27, 26, 25), 1);
    EXPECT_EQ(CRecvAPkt(port), -1);
    EXPECT_EQ(ComGetBytes(port), 0);
    EXPECT_EQ(CRecvAPkt(port), -1);
    ASSERT_EQ(start(port, "file"), 1) << "the port is free for the next";

    const OpenPort other(otherNumber, "null-modem:other");
    const std::string path = files.path("file");
    EXPECT_EQ(start(other, "file"), -1) << "somebody else is receiving it";
    EXPECT_EQ(ComRecvA(other, path.c_str(), 27, 26, 1), -1);
    EXPECT_EQ(ComRA_Abort(port), 1);
    EXPECT_EQ(ComRecvA(port, path.c_str(), 0, 26, 1), -1);
    EXPECT_EQ(ComRecvA(port, path.c_str(), 27, -1, 1), -1);
    EXPECT_EQ(ComRecvA(port, path.c_str(), 27, 26, 0), -1);
    for (const char* bad : {static_cast<const char*>(nullptr), "", "/no/such/folder/file", "/tmp"})
        EXPECT_EQ(ComRecvA(port, bad, 27, 26, 1), -1);
    EXPECT_EQ(ComRecvA(number + 2, path.c_str(), 27, 26, 1), -1);
    EXPECT_EQ(ComRA_Start(number + 2, path.c_str(), 27, 26, 25), -1);
}

TEST_F(TextReceive, NoStepOverAVirtualPortTriesForEver) {
    ASSERT_EQ(ComVirtualOpen(otherNumber), otherNumber);
    ComSetComFlushFunc(otherNumber, [](int32_t) { return 1; });
    ASSERT_EQ(start(otherNumber, "file"), 1);
    ComSetComStatusFunc(otherNumber, [](int32_t) { return 4; });
    EXPECT_EQ(CRecvAPkt(otherNumber), 5) << "it has no way to read, and does not try for ever";
    ComSetComReadFunc(otherNumber, [](int32_t, void* to, int32_t) {
        std::fill_n(static_cast<char*>(to), 4, 'y');
        return INT32_MAX;
    });
    EXPECT_EQ(CRecvAPkt(otherNumber), 5) << "nor does a line that never falls silent keep a step";
    EXPECT_EQ(files.bytes("file").find_first_not_of('y'), std::string::npos);
    EXPECT_EQ(ComVirtualClose(otherNumber), 1);
    EXPECT_FALSE(files.isOpen("file"));
}

TEST_F(TextReceive, ReadingTextDropsTheRest) {
    feed("A\aB\r\n\xC8\x7F ~\t");
    std::string buffer(20, '#');
    EXPECT_EQ(ComRead_ASCII(port, buffer.data(), 4), 3);
    EXPECT_STREQ(buffer.c_str(), "AB\r");
    EXPECT_EQ(ComRead_ASCII(port, buffer.data(), 19), 3);
    EXPECT_STREQ(buffer.c_str(), "\n ~");
    EXPECT_EQ(ComRead_ASCII(port, buffer.data(), -1), 0);
    EXPECT_STREQ(buffer.c_str(), "");
    EXPECT_EQ(ComRead_ASCII(port, nullptr, 3), 0);
}

} // namespace
} // namespace brisolt::test

// Text files on their way in: in one call, step by step, and what is read of them as text.
#include <future>

#include "files/hindrances.h"
#include "port/scramble.h"
#include "transfer/quick_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 6, otherNumber = 16;

struct TextReceive : TransferTest {
    /// Bytes that wait in the port's ring.
    void feed(const std::string& bytes) const { arrive(port, far, bytes); }
    int32_t start(int32_t receiver, const std::string& name, int32_t endChar = 26) {
        return CInitRcvAPkt(receiver, files.path(name).c_str(), 27, endChar, 25);
    }
    int32_t receive(const std::string& name, int32_t endChar = 26) {
        return ComRecvA(port, files.path(name).c_str(), 27, endChar, 20);
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
        EXPECT_EQ(steps ? start(port, "ours") : 1, 1);
        EXPECT_EQ(ComGetCarrierLossProtocol(port), steps ? 102 : 100);
        EXPECT_EQ(steps ? allSteps(CRecvAPkt, port) : receive("ours"), 2);
        EXPECT_EQ(ComGetCarrierLossProtocol(port), 100);
        EXPECT_EQ(peer.wait(), 0);
        EXPECT_EQ(ComGetBytes(port), static_cast<int32_t>(text.size()));
        EXPECT_TRUE(files.bytes("ours") == text);
        EXPECT_EQ(files.opened(), 0);
        Com_Flush(port, 0);
    }
}

TEST_F(TextReceive, AStepTakesAllThatWaitsAndWhatIsSentMeanwhileMakesNoDifference) {
    const std::string text(25000, 'x'), sent = files.make("sent", "x");
    auto received = std::async(std::launch::async, [this] { return receive("file"); });
    ASSERT_TRUE(eventually([this] { return files.opened() == 1; }));
    EXPECT_EQ(ComSendA(port, sent.c_str()), 1) << "it makes no difference";
    far.write("text\x1a rest");
    EXPECT_EQ(received.get(), 2);
    EXPECT_EQ(files.bytes("file"), "text");
    EXPECT_EQ(ComStatus(port), 0) << "what follows is discarded";
    for (const bool aborted : {false, true}) {
        ASSERT_EQ(start(port, "file"), 1);
        EXPECT_EQ(ComSendA(port, sent.c_str()), 1);
        feed(text + endMarker + "and more");
        EXPECT_EQ(aborted ? CTermAPkt(port) + 1 : CRecvAPkt(port), 2);
        EXPECT_TRUE(files.bytes("file") == (aborted ? "" : text));
        EXPECT_EQ(ComStatus(port), 0) << "what follows is discarded";
    }
    ASSERT_EQ(start(port, "file"), 1);
    EXPECT_EQ(CRecvAPkt(port), 5) << "nothing waits";
    feed("ab");
    EXPECT_EQ(CRecvAPkt(port), 5);
    EXPECT_EQ(files.bytes("file"), "ab") << "others may read what has come so far";
    feed(std::string(1, endMarker));
    EXPECT_EQ(ComRA_Next(port), 2);
    EXPECT_EQ(CRecvAPkt(port), -1) << "it is over";
    ComPortSetEscapeChar(port, 3); // it counts, not the start's
    ASSERT_EQ(start(port, "file"), 1);
    for (const auto& [typed, result] : {std::pair{27, 5}, {3, 1}}) {
        ComHostPostChar(ComHostThreadId(), typed);
        EXPECT_EQ(CRecvAPkt(port), result);
    }
    EXPECT_EQ(files.opened(), 0);
}

TEST_F(TextReceive, AnEndCharacterMayBeAnyByteOrNone) {
    for (const int32_t endChar : {0, 255, 10}) {
        const std::string end(1, static_cast<char>(endChar));
        feed(std::string("text").append(end).append(end));
        ASSERT_EQ(start(port, "file", endChar), 1);
        EXPECT_EQ(CRecvAPkt(port), 2);
        EXPECT_EQ(files.bytes("file"), "text");
        feed("again" + end);
        EXPECT_EQ(receive("file", endChar), 2);
        EXPECT_EQ(files.bytes("file"), "again");
    }
    const FastClock fast(50);
    const std::string all = pattern(512);
    for (const int32_t endChar : {-1, 256, 26 + 256}) {
        feed(all);
        ASSERT_EQ(start(port, "file", endChar), 1);
        const uint32_t begun = clock::ticks();
        EXPECT_EQ(allSteps([](int32_t p) { return ComSleepMS(p, 100), CRecvAPkt(p); }, port), 3);
        EXPECT_GT(clock::ticks() - begun, 20000U);
        EXPECT_EQ(files.bytes("file"), all) << "what had come stays";
    }
}

TEST_F(TextReceive, AScrambledPortFindsTheEndInTheClearText) {
    std::string text = pattern(20000), sent; // scrambled it has the end character at many places
    std::erase(text, endMarker);
    for (const char byte : text + endMarker)
        sent += static_cast<char>(scrambleByte(port.record().scrambleKey, static_cast<uint8_t>(byte)));
    feed(sent);
    ComSetSecurity(port, 1);
    ASSERT_EQ(start(port, "file"), 1);
    EXPECT_EQ(CRecvAPkt(port), 2);
    EXPECT_TRUE(files.bytes("file") == text);
}

TEST_F(TextReceive, AFullDiskAndABadFileAreFailures) {
    for (const auto& [escape, end, timeout] : {std::tuple{0, 26, 1}, {27, -1, 1}, {27, 26, 0}})
        EXPECT_EQ(ComRecvA(port, files.path("file").c_str(), escape, end, timeout), -1);
    for (const char* bad : {"", "/no/such/folder/file", "/tmp"})
        EXPECT_EQ(ComRecvA(port, bad, 27, 26, 1), -1);
    std::filesystem::create_symlink("/dev/full", files.path("full"));
    feed("text");
    EXPECT_EQ(receive("full"), -1);
    Com_Flush(port, 0);
    feed("text");
    ASSERT_EQ(start(port, "full"), 1);
    EXPECT_EQ(CRecvAPkt(port), -1);
    EXPECT_EQ(ComGetBytes(port), 0);
    EXPECT_EQ(start(port, "file"), 1) << "the port is free for the next";
}

TEST_F(TextReceive, AFileThatSomebodyWritesIsLeftAsItIs) {
    const std::string path = files.make("file", "somebody's");
    const auto expectRefused = [&](const std::string& holds) {
        EXPECT_EQ(receive("file"), -1);
        EXPECT_EQ(start(port, "file"), -1);
        EXPECT_EQ(ComRA_Thread(port, path.c_str()), -1);
        EXPECT_EQ(files.bytes("file"), holds);
    };
    std::optional<Holder> another(std::in_place, ">>", path);
    expectRefused("somebody's");
    another.reset();
    std::ofstream ours(path, std::ios::app);
    expectRefused("somebody's");
    ours.close();
    const QuickPort other(otherNumber, "null-modem:other");
    const Holder reading("<", path);
    EXPECT_EQ(start(other, "file"), 1) << "who reads is not disturbed";
    expectRefused("");
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
    EXPECT_EQ(files.opened(), 0);
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
}

} // namespace
} // namespace brisolt::test

// Reading without waiting: what comes out of the receive ring, in which pieces, and what the trace says.
#include <atomic>
#include <fstream>

#include "stream/open_port.h"
#include "support/bare_port.h"
#include "support/digest.h"
#include "support/peer_process.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 7;

TEST(Reading, GivesEveryByteOnceAndInOrder) {
    Pty far;
    OpenPort open(port, far.slavePath());
    EXPECT_EQ(readUpTo(port, 10), "");
    EXPECT_EQ(open.record().rxTail + open.record().rxHead, 0);
    EXPECT_EQ(ComGetc(port), -1);
    far.write(std::string("hello\xFF\0z", 8));
    ASSERT_TRUE(eventually([] { return ComStatus(port) == 8; }));
    EXPECT_EQ(readUpTo(port, 5), "hello");
    EXPECT_EQ(ComGetc(port), 255);
    EXPECT_EQ(ComGetc(port), 0);
    EXPECT_EQ(ComStatus(port), 1);
    EXPECT_EQ(readUpTo(port, 10), "z");
    EXPECT_EQ(ComStatus(port), 0);
}

struct Shape {
    const char* what;
    int32_t tail, head, count;
    int32_t tailAfter, headAfter;
    std::vector<std::string> trace;
};
std::vector<std::string> bothPieces(int32_t count) {
    const std::string length = " len:" + std::to_string(count);
    return {"ComRead partial ++count:10" + length, "ComRead partial add count:5" + length};
}
const std::vector<Shape> shapes{
    {"empty", 0, 0, 5, 0, 0, {}},
    {"a part of one piece", 10, 20, 4, 14, 20, {"ComRead count:10 len:4"}},
    {"one piece", 10, 20, 10, 0, 0, {"ComRead count:10 len:10"}},
    {"less than asked for", 10, 20, 15, 0, 0, {"ComRead count:10 len:15"}},
    {"full from the start", 0, 2048, 2048, 0, 0, {"ComRead count:2048 len:2048"}},
    {"before the end", 2038, 5, 4, 2042, 5, {"ComRead count:10 len:4"}},
    {"up to the end", 2038, 5, 10, 0, 5, {"ComRead count:10 len:10"}},
    {"over the end", 2038, 5, 12, 2, 5, bothPieces(12)},
    {"over the end, all", 2038, 5, 15, 0, 0, bothPieces(15)},
    {"over the end, less than asked for", 2038, 5, 20, 0, 0, bothPieces(20)},
    {"over the end, where nothing is", 2038, 0, 12, 0, 0, {"ComRead partial ++count:10 len:12"}},
};

TEST(Reading, PiecesPositionsAndTrace) {
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.what);
        BarePort bare(port);
        LogFile log;
        bare->record->ioMode = ioThreaded;
        std::string whole;
        for (int32_t at = shape.tail; at != shape.head; at = (at + 1) % 2048) {
            if (at == 0 && shape.head == 0)
                break;
            whole += static_cast<char>(bare->rx.storage[at] = static_cast<uint8_t>(at * 7));
            if (at + 1 == shape.head)
                break;
        }
        bare->record->rxTail = shape.tail;
        bare->record->rxHead = shape.head;
        ComSetPortDebugFile(port, log.path().c_str());
        EXPECT_EQ(readUpTo(port, shape.count), whole.substr(0, static_cast<std::size_t>(shape.count)));
        EXPECT_EQ(bare->record->rxTail, shape.tailAfter);
        EXPECT_EQ(bare->record->rxHead, shape.headAfter);
        EXPECT_EQ(log.entries({"ComRead"}), shape.trace);
        EXPECT_EQ(ComStatus(port), static_cast<int32_t>(whole.size()) -
                                       std::min(static_cast<int32_t>(whole.size()), shape.count));
    }
}

// A caller that asks for the count of an empty ring gets what the device holds, without the thread.
TEST(Reading, StatusTakesFromTheDeviceItself) {
    Pty far;
    OpenPort open(port, far.slavePath());
    LogFile log;
    ComSetPortDebugFile(port, log.path().c_str());
    {
        HeldLock noRounds(open.inside());
        far.write("hi\x0F");
        ASSERT_TRUE(eventually([&] { return open.inside().device.status(COM_HOST_WANT_IN).inQueue == 3; }));
        EXPECT_EQ(open.inside().rx.count(), 0);
        EXPECT_EQ(ComStatus(port), 3);
    }
    const std::vector<std::string> expected{"3 characters in buffer to read", "Reading 3 characters",
                                            "Reading from port Intended bytes: 3 Read:3 Success:1",
                                            "Hex Characters Read From Port:", " 68 69 f"};
    EXPECT_EQ(log.entries(), expected);
}

TEST(Reading, AFullRingStallsTheDeviceUntilItIsEmptied) {
    Pty far;
    OpenPort open(port, far.slavePath());
    const std::string sent = pattern(6000);
    std::thread sender([&] { EXPECT_EQ(far.write(sent, 30s), sent.size()); });
    ASSERT_TRUE(eventually([] { return ComStatus(port) == 2048; }));
    EXPECT_EQ(open.record().rxHead, 2048);
    // Half a ring is no room: what comes must lie in one piece behind what is there.
    std::string got = readUpTo(port, 1000);
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(ComStatus(port), 1048);
    while (got.size() < sent.size()) {
        const std::string more = readTimed(port, 1);
        ASSERT_FALSE(more.empty());
        got += more + readUpTo(port, 700);
    }
    sender.join();
    EXPECT_TRUE(got == sent);
}

TEST(Reading, ReadToEmptyStopsAtTheTerminatorOrOneBeyondTheMaximum) {
    struct Case {
        int32_t terminator, maximum;
        const char* expected;
    };
    const std::vector<Case> cases{{'x', 4, "01234"}, {'3', 9, "0123"},         {'3' + 0x100, 9, "0123"},
                                  {'x', 0, "0"},     {'x', 100, "0123456789"}, {'x', INT32_MAX, "0123456789"},
                                  {'x', -1, ""},     {'x', INT32_MIN, ""}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected);
        BarePort bare(port);
        bare->record->ioMode = ioThreaded;
        std::copy_n("0123456789", 10, bare->rx.storage);
        bare->record->rxHead = 10;
        char buffer[20];
        std::fill(std::begin(buffer), std::end(buffer), '!');
        const int32_t got = ComReadBufToEmpty(port, buffer, c.terminator, c.maximum);
        const std::string expected = c.expected;
        EXPECT_EQ(got, static_cast<int32_t>(expected.size()));
        EXPECT_EQ(std::string(buffer, expected.size() + 1), expected + "!") << "it is not terminated";
    }
}

TEST(Reading, SixtyFourKilobytesFromAnotherProcess) {
    Pty far;
    OpenPort open(port, far.slavePath());
    TempDir directory;
    const std::string sent = pattern(65536);
    std::ofstream(directory.file("bytes"), std::ios::binary) << sent;
    PeerProcess peer(BRISOLT_TEST_PEER, {"send", std::to_string(far.master()), directory.file("bytes")},
                     {.inherit = far.master()});
    Digest digest;
    for (std::size_t count = 0; count < sent.size();) {
        std::string got = readTimed(port, 1);
        ASSERT_FALSE(got.empty()) << "after " << count << " bytes";
        got += readUpTo(port, 1500);
        digest.add(got);
        count += got.size();
    }
    EXPECT_EQ(digest.value(), digestOf(sent));
    EXPECT_EQ(peer.wait(), 0);
}

// ---- Direct mode: no thread, every call moves the bytes itself -----------------------------------------

TEST(DirectMode, CallsMoveTheBytes) {
    FastClock fast(20); // its close takes 5.6 s
    Pty far;
    OpenPort open(port, far.slavePath(), {.name = "THUNK"});
    EXPECT_EQ(open.record().ioThread, 0U);
    LogFile log;
    ComSetPortDebugFile(port, log.path().c_str());

    far.write("direct");
    ASSERT_TRUE(eventually([] { return ComStatus(port) == 6; }));
    EXPECT_EQ(log.entries({"Read HWM"}), std::vector<std::string>{"Read HWM 6 Read LWM"});
    EXPECT_EQ(readUpTo(port, 100), "direct");
    EXPECT_EQ(write(port, "straight"), 8);
    EXPECT_EQ(far.read(8), "straight");

    // Queued bytes go with the next call, a block each.
    ComSuspendPortWriteThru(port);
    ComSetPortMaxWriteChars(port, 4);
    EXPECT_EQ(write(port, "slowly"), 6);
    EXPECT_EQ(far.readToQuiet(), "");
    ComStatus(port);
    EXPECT_EQ(far.read(6, 300ms), "slow");
    EXPECT_EQ(ComOutBufStatus(port), 2);
    EXPECT_EQ(readUpTo(port, 1), "");
    EXPECT_EQ(far.read(2), "ly");

    std::thread sender([&] {
        std::this_thread::sleep_for(100ms);
        far.write("awaited");
    });
    EXPECT_EQ(write(port, "queued"), 6);
    EXPECT_EQ(readTimed(port, 7, 60000), "awaited");
    EXPECT_EQ(far.read(6), "queued") << "a wait moves bytes both ways";
    sender.join();
}

// ---- Driver functions: a port whose bytes come from elsewhere ---------------------------------------------

std::atomic<int32_t> foreignBytes{0};

TEST(StreamDrivers, FunctionsInTheRecordReplaceThePrimitives) {
    BarePort bare(port);
    PortRecord& record = *bare->record;
    record.readFunc = [](int32_t, void* to, int32_t count) -> int32_t {
        if (foreignBytes < 1)
            return count;
        *static_cast<char*>(to) = 'f';
        return foreignBytes--;
    };
    record.writeFunc = [](int32_t number, const void*, int32_t count) { return number * 100 + count; };
    record.statusFunc = [](int32_t) { return foreignBytes.load(); };
    record.outBufStatusFunc = [](int32_t number) { return number + 2; };
    record.flushFunc = [](int32_t number) { return number + 3; };
    record.flushOutBufFunc = [](int32_t number) { return number + 4; };
    char byte = 'x';
    EXPECT_EQ(ComRead(port, nullptr, -8), -8) << "what a count means is the driver's business";
    EXPECT_EQ(ComWrite(port, &byte, -1), port * 100 - 1);
    EXPECT_EQ(ComPutc(port, 1), port * 100 + 1);
    EXPECT_EQ(ComOutBufStatus(port), port + 2);
    EXPECT_EQ(ComFlush(port), port + 3);
    EXPECT_EQ(Com_Flush(port, 60), port + 3) << "at once";
    EXPECT_EQ(ComFlushOutBuf(port), port + 4);
    EXPECT_EQ(ComStatus(port), 0);
    // Nobody is told when such bytes come.
    std::thread sender([] {
        std::this_thread::sleep_for(100ms);
        foreignBytes = 1;
    });
    EXPECT_EQ(ComReadTimed(port, &byte, 1, 6000), 1);
    EXPECT_EQ(byte, 'f');
    sender.join();
}

// ---- Arguments -------------------------------------------------------------------------------------------

struct Call {
    const char* what;
    int32_t (*call)(int32_t port);
};
char buffer[3000];

const std::vector<Call> everyCall{
    {"ComRead", [](int32_t p) { return ComRead(p, buffer, 5); }},
    {"ComGetc", ComGetc},
    {"ComReadTimed", [](int32_t p) { return ComReadTimed(p, buffer, 5, 20); }},
    {"ComReadBuf", [](int32_t p) { return ComReadBuf(p, buffer, 13, 5, 1); }},
    {"ComReadBufToQuiet", [](int32_t p) { return ComReadBufToQuiet(p, buffer, 5, 1); }},
    {"ComReadBufToEmpty", [](int32_t p) { return ComReadBufToEmpty(p, buffer, 13, 5); }},
    {"ComStatus", ComStatus},
    {"ComWrite", [](int32_t p) { return ComWrite(p, buffer, 5); }},
    {"ComPutc", [](int32_t p) { return ComPutc(p, 'x'); }},
    {"ComPuts", [](int32_t p) { return ComPuts(p, "x~"); }},
    {"ComOutBufStatus", ComOutBufStatus},
    {"ComFlush", ComFlush},
    {"Com_Flush", [](int32_t p) { return Com_Flush(p, 0); }},
    {"ComFlushOutBuf", ComFlushOutBuf},
    {"ComFlushImmediate", ComFlushImmediate},
    {"ComSetWriteTimeout", [](int32_t p) { return ComSetWriteTimeout(p, 100); }},
    {"ComSetPortMaxWriteChars", [](int32_t p) { return ComSetPortMaxWriteChars(p, 100); }},
    {"ComSetLineErrorReplacement", [](int32_t p) { return ComSetLineErrorReplacement(p, 1, '?'); }},
    {"ComGetLineError", ComGetLineError},
    {"ComEscape", [](int32_t p) { return ComEscape(p, 27); }},
    {"ComSleep", [](int32_t p) { return ComSleep(p, 0); }},
    {"ComSleepMS", [](int32_t p) { return ComSleepMS(p, 0); }},
    {"ComCancel", ComCancel},
    {"ComPortSetEscapeChar", [](int32_t p) { return ComPortSetEscapeChar(p, 27); }},
    {"ComSetYield", [](int32_t p) { return ComSetYield(p, 1); }},
    {"ComHostSetLossless", [](int32_t p) { return ComHostSetLossless(p, 1); }},
    {"ComSetNotifyMessageAnyChar", [](int32_t p) { return ComSetNotifyMessageAnyChar(p, 0); }},
    {"ComSetNotifyThreadMessageAnyChar", [](int32_t p) { return ComSetNotifyThreadMessageAnyChar(p, 0); }},
    {"ComSetNotifyMessageOnAnyCharCallBackFunc",
     [](int32_t p) { return ComSetNotifyMessageOnAnyCharCallBackFunc(p, nullptr); }},
};

TEST(StreamArguments, BadAndClosedPortsAreRefused) {
    for (const Call& call : everyCall)
        for (int32_t number : {0, -1, 257, INT32_MIN, INT32_MAX, 256, 1})
            EXPECT_EQ(call.call(number), -1) << call.what << ' ' << number;
    EXPECT_EQ(ComPortGetEscapeChar(300), 0);
    EXPECT_EQ(ComGetShow(0), nullptr);
}

TEST(StreamArguments, WhatMakesNoSenseIsRefusedAndChangesNothing) {
    Pty far;
    OpenPort open(port, far.slavePath());
    far.write("kept");
    ASSERT_TRUE(eventually([] { return ComStatus(port) == 4; }));
    const std::vector<std::pair<const char*, int32_t>> answers{
        {"-1 ComRead null", ComRead(port, nullptr, 4)},
        {"0 ComRead none", ComRead(port, buffer, 0)},
        {"0 ComRead negative", ComRead(port, buffer, INT32_MIN)},
        {"-1 ComReadTimed null", ComReadTimed(port, nullptr, 4, 20)},
        {"0 ComReadTimed none", ComReadTimed(port, buffer, 0, 20)},
        {"0 ComReadTimed negative", ComReadTimed(port, nullptr, -5, 20)},
        {"-1 ComReadBuf null", ComReadBuf(port, nullptr, 13, 4, 1)},
        {"-1 ComReadBuf terminator", ComReadBuf(port, buffer, -1, 4, 1)},
        {"-1 ComReadBuf maximum", ComReadBuf(port, buffer, 13, -1, 1)},
        {"-1 ComReadBuf no time", ComReadBuf(port, buffer, 13, 4, 0)},
        {"-1 ComReadBufToQuiet null", ComReadBufToQuiet(port, nullptr, 4, 1)},
        {"-1 ComReadBufToQuiet size", ComReadBufToQuiet(port, buffer, 0, 1)},
        {"-1 ComReadBufToQuiet no time", ComReadBufToQuiet(port, buffer, 4, 0)},
        {"-1 ComReadBufToEmpty null", ComReadBufToEmpty(port, nullptr, 13, 4)},
        {"-1 ComWrite null", ComWrite(port, nullptr, 4)},
        {"0 ComWrite none", ComWrite(port, nullptr, 0)},
        {"0 ComWrite negative", ComWrite(port, buffer, INT32_MIN)},
        {"-1 ComPuts null", ComPuts(port, nullptr)},
        {"1 ComPuts empty", ComPuts(port, "")},
        {"1 ComSleep negative", ComSleep(port, INT32_MIN)},
        {"1 ComSleepMS negative", ComSleepMS(port, INT32_MIN)},
    };
    for (const auto& [what, answer] : answers)
        EXPECT_EQ(answer, std::stoi(what)) << what;
    EXPECT_EQ(readUpTo(port, 10), "kept");
    EXPECT_EQ(far.readToQuiet(), "");
}

} // namespace
} // namespace brisolt::test

// Reading without waiting: what comes out of the receive ring, in which pieces, and what the trace says.
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 7;

TEST(Reading, TracesEachPieceOfTheRing) {
    BarePort bare(port);
    LogFile log;
    bare->record->ioMode = ioThreaded;
    bare->record->rxTail = 2038;
    bare->record->rxHead = 5;
    ComSetPortDebugFile(port, log.path().c_str());
    EXPECT_EQ(readUpTo(port, 4).size(), 4U);
    EXPECT_EQ(readUpTo(port, 20).size(), 11U);
    EXPECT_EQ(log.entries({"ComRead"}),
              (std::vector<std::string>{"ComRead count:10 len:4", "ComRead partial ++count:6 len:20",
                                        "ComRead partial add count:5 len:20"}));
}

// A caller that asks for the count of an empty ring gets what the device holds, without the thread.
TEST(Reading, StatusTakesFromTheDeviceItself) {
    Pty far;
    OpenPort open(port, far.slavePath());
    LogFile log;
    ComSetPortDebugFile(port, log.path().c_str());
    {
        HeldLock noRounds(open.inside());
        EXPECT_EQ(ComGetc(port), -1);
        far.write("hi\xFF");
        ASSERT_TRUE(eventually([&] { return open.inside().device.status(COM_HOST_WANT_IN).inQueue == 3; }));
        EXPECT_EQ(open.inside().rx.count(), 0);
        EXPECT_EQ(ComStatus(port), 3);
    }
    const std::vector<std::string> expected{"3 characters in buffer to read", "Reading 3 characters",
                                            "Reading from port Intended bytes: 3 Read:3 Success:1",
                                            "Hex Characters Read From Port:", " 68 69 ff"};
    EXPECT_EQ(log.entries(), expected);
    EXPECT_EQ(readUpTo(port, 2), "hi");
    EXPECT_EQ(ComGetc(port), 255);
}

TEST(Reading, ReadToEmptyStopsAtTheTerminatorOrOneBeyondTheMaximum) {
    const std::vector<std::tuple<int32_t, int32_t, std::string>> cases{
        {'x', 4, "01234"}, {'3', 9, "0123"},         {'3' + 0x100, 9, "0123"},
        {'x', 0, "0"},     {'x', 100, "0123456789"}, {'x', INT32_MAX, "0123456789"},
        {'x', -1, ""},     {'x', INT32_MIN, ""}};
    for (const auto& [terminator, maximum, expected] : cases) {
        SCOPED_TRACE(testing::Message() << terminator << " at most " << maximum);
        BarePort bare(port);
        bare->record->ioMode = ioThreaded;
        std::copy_n("0123456789", 10, bare->rx.storage);
        bare->record->rxHead = 10;
        std::string buffer(20, '!');
        const int32_t got = ComReadBufToEmpty(port, buffer.data(), terminator, maximum);
        EXPECT_EQ(got, static_cast<int32_t>(expected.size()));
        EXPECT_EQ(buffer.substr(0, expected.size() + 1), expected + "!") << "it is not terminated";
    }
}

char buffer[3000];

TEST(StreamArguments, WhatMakesNoSenseIsRefusedAndChangesNothing) {
    Pty far;
    OpenPort open(port, far.slavePath());
    far.write("kept");
    ASSERT_TRUE(eventually([] { return ComStatus(port) == 4; }));
    const std::vector<std::pair<const char*, int32_t>> answers{
        {"0 ComRead none", ComRead(port, buffer, 0)},
        {"0 ComRead negative", ComRead(port, buffer, INT32_MIN)},
        {"0 ComReadTimed none", ComReadTimed(port, buffer, 0, 20)},
        {"0 ComReadTimed negative", ComReadTimed(port, nullptr, -5, 20)},
        {"-1 ComReadBuf terminator", ComReadBuf(port, buffer, -1, 4, 1)},
        {"-1 ComReadBuf maximum", ComReadBuf(port, buffer, 13, -1, 1)},
        {"-1 ComReadBuf no time", ComReadBuf(port, buffer, 13, 4, 0)},
        {"-1 ComReadBufToQuiet size", ComReadBufToQuiet(port, buffer, 0, 1)},
        {"-1 ComReadBufToQuiet no time", ComReadBufToQuiet(port, buffer, 4, 0)},
        {"0 ComWrite none", ComWrite(port, nullptr, 0)},
        {"0 ComWrite negative", ComWrite(port, buffer, INT32_MIN)},
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

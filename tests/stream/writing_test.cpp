// Writing: straight through or through the ring, what becomes of bytes that the far end holds off, and what
// the trace says of it.
#include "device/device.h"
#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 9;
using Lines = std::vector<std::string>;

TEST(Writing, StraightThroughAndThroughTheRing) {
    Pty far;
    OpenPort open(port, far.slavePath());
    LogFile trace;
    ComSetPortDebugFile(port, trace.path().c_str());
    EXPECT_EQ(write(port, "Hi\x01\xFF"), 4);
    EXPECT_EQ(far.read(4), "Hi\x01\xFF");
    EXPECT_EQ(trace.entries(), (Lines{"Performing Write-Thru: Bytes: 4 Write-thru State:1",
                                      "Writing to port Intended bytes: 4 Room:1024 Written:4",
                                      "Hex Characters Written:", " 48 69 1 ff"}));

    ComSuspendPortWriteThru(port);
    ComSetPortMaxWriteChars(port, 3);
    EXPECT_EQ(write(port, "abcd"), 4);
    EXPECT_EQ(far.read(4), "abcd");
    ASSERT_TRUE(eventually([&] { return trace.entries().size() == 12; }));
    EXPECT_EQ(trace.entries({"Writing"}),
              (Lines{"Writing to port Intended bytes: 4 Room:1024 Written:4", "Writing 3 characters",
                     "Writing to port Intended bytes: 3 Room:3 Written:3", "Writing 1 characters",
                     "Writing to port Intended bytes: 1 Room:3 Written:1"}));

    // More than the device may be given in one write goes through the ring, too.
    ComResumePortWriteThru(port);
    EXPECT_EQ(write(port, "1234"), 4);
    EXPECT_EQ(far.read(4), "1234");
    EXPECT_EQ(trace.entries({"Performing"}).size(), 1U);
    EXPECT_EQ(write(port, "567"), 3);
    EXPECT_EQ(trace.entries({"Performing"}).size(), 2U);
}

TEST(Writing, HexDumpOfAFirstLineWithOneByteMore) {
    Pty far;
    OpenPort open(port, far.slavePath());
    for (std::size_t count : {41U, 42U, 90U}) {
        LogFile trace;
        ComSetPortDebugFile(port, trace.path().c_str());
        write(port, std::string(count, 'A'));
        std::vector<std::size_t> widths;
        for (const std::string& line : trace.entries({" 41"}))
            widths.push_back(line.size() / 3);
        std::vector<std::size_t> expected{41};
        if (count > 41)
            expected.push_back(std::min<std::size_t>(count - 41, 40));
        if (count > 81)
            expected.push_back(count - 81);
        EXPECT_EQ(widths, expected) << count;
    }
}

TEST(Writing, CharactersAndStrings) {
    FastClock fast(10);
    Pty far;
    OpenPort open(port, far.slavePath());
    EXPECT_EQ(ComPutc(port, 'A' + 0x7FFFFF00), 1);
    EXPECT_EQ(ComPutc(port, -1), 1);
    EXPECT_EQ(ComPuts(port, "AT|\x80"), 1);
    EXPECT_EQ(far.read(6), "A\xFF"
                           "AT\r\x80");
    // A pause lets messages through when waits may yield.
    int32_t handled = 0;
    const int32_t window = ComHostCreateWindow(
        [](void* count, int32_t, uint32_t, uintptr_t, intptr_t) { ++*static_cast<int32_t*>(count); },
        &handled);
    for (int32_t yield : {0, 1}) {
        ComSetYield(port, yield);
        ComHostPostMessage(window, 0x400, 0, 0);
        const uint32_t start = clock::ticks();
        EXPECT_EQ(ComPuts(port, "+~~~+"), 1);
        EXPECT_GE(clock::ticks() - start, 3000U);
        EXPECT_EQ(far.read(2), "++");
        EXPECT_EQ(handled, yield * 2) << "of the two that are waiting by then";
    }
    ComHostDestroyWindow(window);
}

TEST(Writing, AFullRingTellsHowManyItTook) {
    Pty far;
    OpenPort open(port, far.slavePath());
    const std::string sent = pattern(5000);
    {
        HeldLock noRounds(open.inside());
        EXPECT_EQ(write(port, sent), 2048);
        EXPECT_EQ(write(port, "more"), 0);
        EXPECT_EQ(ComPutc(port, 'x'), 0);
        EXPECT_EQ(ComOutBufStatus(port), 2048);
    }
    EXPECT_EQ(far.read(2048), sent.substr(0, 2048));
    EXPECT_TRUE(eventually([] { return ComOutBufStatus(port) == 0; }));
    EXPECT_EQ(far.readToQuiet(), "");
}

// ---- A far end that holds us off --------------------------------------------------------------------------

/// A port whose far end lets nothing through until it says so.
class HeldOff : public testing::Test {
protected:
    HeldOff() {
        EXPECT_EQ(far.open("null-modem:held"), 1);
        ComSetFlow(port, 0);
        far.line(COM_HOST_LINE_CLEAR_RTS);
        ComSetPortDebugFile(port, trace.path().c_str());
    }
    void letThrough() const { far.line(COM_HOST_LINE_SET_RTS); }
    std::string arrived() const {
        std::string bytes(10000, '\0');
        bytes.resize(static_cast<std::size_t>(far.read(bytes.data(), 10000)));
        return bytes;
    }
    /// What arrives when nothing holds it any more, up to bytes that are sent last.
    std::string arrivedUpTo(const std::string& end) const {
        std::string all;
        EXPECT_TRUE(eventually([&] { return (all += arrived()).ends_with(end); })) << all;
        return all;
    }

    OpenPort open{port, "null-modem:held"};
    Device far;
    LogFile trace;
};

TEST_F(HeldOff, AWriteEndsWithTheTimeOutAndItsBytesNeverArrive) {
    ComSetWriteTimeout(port, 300);
    const auto start = SteadyClock::now();
    EXPECT_EQ(write(port, "0123456789"), 0);
    EXPECT_GE(SteadyClock::now() - start, 290ms);
    // Nothing was refused, but it did not complete at once either.
    const Lines errors = trace.entries({"ERROR"});
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(errors[0].starts_with("ERROR: bytes written=0 intended=10 wsuccess=0 LastError="))
        << errors[0];
    EXPECT_EQ(trace.entries({"Performing", "Writing"}),
              (Lines{"Performing Write-Thru: Bytes: 10 Write-thru State:1",
                     "Writing to port Intended bytes: 10 Room:1024 Written:0"}));

    // Through the ring the round waits, and what it could not send is gone as well.
    ComSuspendPortWriteThru(port);
    EXPECT_EQ(write(port, "lost"), 4);
    ASSERT_TRUE(eventually([&] { return trace.entries({"ERROR"}).size() == 2; }));
    EXPECT_EQ(ComOutBufStatus(port), 0);
    letThrough();
    EXPECT_EQ(write(port, "end"), 3);
    EXPECT_EQ(arrivedUpTo("end"), "end");
}

TEST_F(HeldOff, ATimeOutOfNoneWaitsUntilTheFarEndTakesIt) {
    ComSetWriteTimeout(port, 50);
    ComSetWriteTimeout(port, 0);
    std::thread reader([&] {
        std::this_thread::sleep_for(400ms);
        letThrough();
    });
    EXPECT_EQ(write(port, "patience"), 8);
    EXPECT_EQ(arrived(), "patience");
    reader.join();
}

TEST_F(HeldOff, ALosslessPortTakesAllAndDeliversItHoweverLate) {
    ComSetWriteTimeout(port, 100);
    ComHostSetLossless(port, 1);
    const std::string sent = pattern(8000);
    const auto start = SteadyClock::now();
    // Neither the line's own queue nor the ring loses what the other has taken.
    std::size_t taken = 0;
    for (int32_t more = 1; more > 0; taken += static_cast<std::size_t>(more))
        more = write(port, sent.substr(taken, 700));
    EXPECT_LT(SteadyClock::now() - start, 10s);
    EXPECT_GE(taken, 2048U);
    EXPECT_EQ(ComOutBufStatus(port), static_cast<int32_t>(taken));
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(ComOutBufStatus(port), static_cast<int32_t>(taken)) << "no time-out drops anything";
    EXPECT_EQ(arrived(), "");
    letThrough();
    std::string got;
    ASSERT_TRUE(eventually([&] { return (got += arrived()).size() >= taken; }));
    EXPECT_TRUE(got == sent.substr(0, taken));
    // The ring gives bytes up once the device has them, a moment after they may have arrived.
    EXPECT_TRUE(eventually([] { return ComOutBufStatus(port) == 0; }));
}

TEST_F(HeldOff, ACloseEndsAWriteAtOnce) {
    ComSetWriteTimeout(port, 60000);
    std::thread closer([&] {
        std::this_thread::sleep_for(200ms);
        EXPECT_EQ(open.close(), 1);
    });
    const auto start = SteadyClock::now();
    EXPECT_EQ(write(port, "0123456789"), 0);
    EXPECT_LT(SteadyClock::now() - start, 5s);
    closer.join();
    EXPECT_EQ(write(port, "x"), -1);
}

// The far end reads nothing for a while: what calls said was taken arrives, the rest does not.
TEST(Writing, WhatWasTakenArrivesAndNothingElse) {
    Pty far;
    OpenPort open(port, far.slavePath());
    LogFile trace;
    ComSetPortDebugFile(port, trace.path().c_str());
    ComSetWriteTimeout(port, 200);
    const std::string block = pattern(1000);
    std::string taken;
    for (std::size_t count = block.size(); count == block.size();) {
        count = static_cast<std::size_t>(write(port, block));
        taken += block.substr(0, count);
    }
    const Lines errors = trace.entries({"ERROR"});
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(errors[0].starts_with("ERROR: bytes written=" + std::to_string(taken.size() % 1000) +
                                      " intended=1000 wsuccess=0 LastError="))
        << errors[0];
    EXPECT_TRUE(far.read(taken.size()) == taken);
    EXPECT_EQ(far.readToQuiet(200ms), "");
    EXPECT_EQ(write(port, "again"), 5);
    EXPECT_EQ(far.read(5), "again");
}

TEST(Writing, ALosslessPortOutlastsAFarEndThatSleeps) {
    Pty far;
    OpenPort open(port, far.slavePath(), {.txSize = 50000});
    ComHostSetLossless(port, 1);
    ComSetWriteTimeout(port, 50);
    const std::string sent = pattern(40000);
    EXPECT_EQ(write(port, sent), 40000);
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(far.read(20000) == sent.substr(0, 20000));
    std::this_thread::sleep_for(300ms);
    EXPECT_TRUE(far.read(20000) == sent.substr(20000));
    EXPECT_TRUE(eventually([] { return ComOutBufStatus(port) == 0; }));
}

} // namespace
} // namespace brisolt::test

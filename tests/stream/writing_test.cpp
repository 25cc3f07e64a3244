// Writing: straight through or through the ring, what becomes of bytes that the far end holds off, and what
// the trace says of it.
#include "platform/device.h"
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
    std::string got;
    EXPECT_TRUE(eventually([&] { return (got += arrived()).ends_with("end"); }));
    EXPECT_EQ(got, "end");
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

} // namespace
} // namespace brisolt::test

// Writing: straight through or through the ring, and what the trace says of it.
#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 9;
using Lines = std::vector<std::string>;

TEST(Writing, StraightThroughAndThroughTheRing) {
    Pty far;
    OpenPort open(port, far.slavePath());
    LogFile trace;
    ComSetPortDebugFile(port, trace.path().c_str());
    EXPECT_EQ(send(port, "Hi\x01\xFF"), 4);
    EXPECT_EQ(far.read(4), "Hi\x01\xFF");
    EXPECT_EQ(trace.entries(), (Lines{"Performing Write-Thru: Bytes: 4 Write-thru State:1",
                                      "Writing to port Intended bytes: 4 Room:1024 Written:4",
                                      "Hex Characters Written:", " 48 69 1 ff"}));

    ComSuspendPortWriteThru(port);
    ComSetPortMaxWriteChars(port, 3);
    EXPECT_EQ(send(port, "abcd"), 4);
    EXPECT_EQ(far.read(4), "abcd");
    ASSERT_TRUE(eventually([&] { return trace.entries().size() == 12; }));
    EXPECT_EQ(trace.entries({"Writing"}),
              (Lines{"Writing to port Intended bytes: 4 Room:1024 Written:4", "Writing 3 characters",
                     "Writing to port Intended bytes: 3 Room:3 Written:3", "Writing 1 characters",
                     "Writing to port Intended bytes: 1 Room:3 Written:1"}));

    // More than the device may be given in one write goes through the ring, too.
    ComResumePortWriteThru(port);
    EXPECT_EQ(send(port, "1234"), 4);
    EXPECT_EQ(far.read(4), "1234");
    EXPECT_EQ(trace.entries({"Performing"}).size(), 1U);
    for (const auto& [asked, applied] : {std::pair{0, 1}, {INT32_MIN, 1}, {1200, 1200}, {1201, 1200}}) {
        EXPECT_EQ(ComSetPortMaxWriteChars(port, asked), 1);
        EXPECT_EQ(open.record().maxWriteChars, applied) << asked;
    }
    EXPECT_EQ(send(port, std::string(82, 'A')), 82);
    EXPECT_EQ(trace.entries({"Performing"}).size(), 2U);
    std::vector<std::size_t> widths;
    for (const std::string& line : trace.entries({" 41"}))
        widths.push_back(line.size() / 3);
    EXPECT_EQ(widths, (std::vector<std::size_t>{41, 40, 1})) << "the first line has a byte more";
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

} // namespace
} // namespace brisolt::test

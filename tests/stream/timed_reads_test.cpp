// The reads that wait: for a count, a terminator, a quiet line, or for the time to be over.
#include <random>

#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 8;
constexpr int32_t never = 256; ///< a terminator that no byte is

class TimedReads : public testing::Test {
protected:
    PortWorkArea& workArea() const { return *open.inside().workArea; }

    Pty far;
    OpenPort open{port, far.slavePath()};
    std::string begin(std::size_t count) const { return {buffer, count}; }
    char buffer[200] = {};
};

TEST_F(TimedReads, TimeIsWhatWasAskedForOrTenSeconds) {
    FastClock fast(25);
    for (const auto& [asked, applied] : {std::pair{300, 300U}, {10, 1000U}, {11, 11U}, {-700, 1000U}}) {
        LogFile trace;
        ComSetPortDebugFile(port, trace.path().c_str());
        const uint32_t start = clock::ticks();
        EXPECT_EQ(ComReadTimed(port, buffer, 10, asked), 0);
        EXPECT_GE(clock::ticks() - start, applied * 10) << asked;
        const std::string line = trace.entries({"ComReadTimed: Timed Out:  Starttime: "}).at(0);
        EXPECT_TRUE(line.ends_with(" Endtimeparm: " + std::to_string(applied))) << line;
    }
}

TEST_F(TimedReads, GivesTheCountAtOnceAndWhatHasComeAtTheEnd) {
    LogFile trace, protocol;
    ComSetPortDebugFile(port, trace.path().c_str());
    ComSetProtocolDebugFile(port, protocol.path().c_str(), "timed");
    arrive(port, far, "abcde");
    ComCancel(port); // nothing waits: forgotten by the next wait
    const auto start = SteadyClock::now();
    EXPECT_EQ(readTimed(port, 3, 60000), "abc");
    EXPECT_LT(SteadyClock::now() - start, 60s);
    EXPECT_EQ(open.record().cancelFlag, 0);
    EXPECT_EQ(readTimed(port, 10, 20), "de");
    const std::vector<std::string> traced = trace.entries({"ComReadTimed"});
    EXPECT_TRUE(traced.at(0).starts_with("ComReadTimed: Got requested bytes Bytes: 3 ")) << traced[0];
    EXPECT_EQ(protocol.entries().at(0), traced.at(1) + " ") << "who runs out of time is told in both";
}

TEST_F(TimedReads, ReadBufEndsOnCountTerminatorOrTime) {
    FastClock fast(20);
    const std::vector<std::tuple<const char*, std::string, int32_t, int32_t, int32_t, std::string>> cases{
        {"full", "01234567890123456789", never, 10, 1, "0123456789"},
        {"terminator", "ab\rcd", '\r', 10, 2, "ab\r"},
        {"a zero byte as terminator", std::string("ab\0cd", 5), 0, 10, 2, std::string("ab\0", 3)},
        {"full counts before the terminator", "abc\r", '\r', 4, 1, "abc\r"},
        {"a terminator that is none", "ab\rcd", '\r' + 256, 5, 1, "ab\rcd"},
        {"time", "ab", '\r', 10, 3, "ab"},
        {"time, nothing", "", '\r', 10, 3, ""},
        {"no room", "ab", 'a', 0, 1, ""},
    };
    for (const auto& [what, sent, terminator, maximum, result, got] : cases) {
        SCOPED_TRACE(what);
        arrive(port, far, sent);
        std::fill(std::begin(buffer), std::end(buffer), '!');
        const uint32_t start = clock::ticks();
        EXPECT_EQ(ComReadBuf(port, buffer, terminator, maximum, 2), result);
        EXPECT_TRUE(result != 3 || clock::ticks() - start >= 2100);
        EXPECT_EQ(begin(got.size() + 2), got + '\0' + '!');
        EXPECT_EQ(workArea().matchLen, static_cast<int32_t>(got.size()));
        EXPECT_EQ(readUpTo(port, 100), sent.substr(got.size())) << "what follows stays in the ring";
    }
}

// A byte that is there already comes before the escape. A cancel leaves the buffer as it is.
TEST_F(TimedReads, ReadBufEndsOnEscapeOrCancel) {
    ComPortSetEscapeChar(port, 'Q');
    ComSetYield(port, 0); // it looks for the escape all the same
    for (const std::string sent : {"", "ab"}) {
        arrive(port, far, sent);
        ComHostPostChar(ComHostThreadId(), 'x');
        ComHostPostChar(ComHostThreadId(), 'Q' + 0x100);
        EXPECT_EQ(ComReadBuf(port, buffer, never, 10, 60), 4);
        EXPECT_EQ(begin(sent.empty() ? 1 : 2), sent.substr(0, 1) + '\0');
        EXPECT_EQ(workArea().matchLen, sent.empty() ? -1 : 0);
    }
    readUpTo(port, 9);
    arrive(port, far, "ab");
    std::fill(std::begin(buffer), std::end(buffer), '!');
    workArea().matchLen = -77;
    std::thread canceller([&] {
        EXPECT_TRUE(eventually([] { return ComStatus(port) == 0; }));
        ComCancel(port);
    });
    EXPECT_EQ(ComReadBuf(port, buffer, never, 10, 60), 4);
    EXPECT_EQ(begin(3), "ab!");
    EXPECT_EQ(workArea().matchLen, -77);
    canceller.join();
}

TEST_F(TimedReads, ToQuietIsFullAtOnceOrLastsAsLongAsBytesCome) {
    arrive(port, far, pattern(150));
    std::fill(std::begin(buffer), std::end(buffer), '!');
    EXPECT_EQ(ComReadBufToQuiet(port, buffer, 100, 36000), 99);
    EXPECT_EQ(begin(101), pattern(150).substr(0, 99) + '\0' + '!');
    EXPECT_EQ(ComReadBufToQuiet(port, buffer, 1, 36000), 0);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_EQ(readUpTo(port, 200).size(), 51U);

    std::thread sender([&] {
        for (int32_t i = 0; i < 8; ++i) {
            std::this_thread::sleep_for(250ms);
            far.write("x");
        }
    });
    EXPECT_EQ(ComReadBufToQuiet(port, buffer, 100, 15), 8);
    EXPECT_EQ(begin(9), std::string("xxxxxxxx\0", 9));
    sender.join();
    // The port's own escape character does not end it.
    ComPortSetEscapeChar(port, 'Q');
    ComHostPostChar(ComHostThreadId(), 'Q');
    FastClock fast(10);
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComReadBufToQuiet(port, buffer, 100, 30), 0);
    EXPECT_EQ(buffer[0], 0);
    EXPECT_GE(clock::ticks() - start, 3000U);
}

TEST_F(TimedReads, AnyMixOfReadsGivesTheSameBytes) {
    const std::string sent = pattern(100000);
    std::mt19937 random(11);
    const auto upTo = [&random](int32_t most) {
        return static_cast<int32_t>(random() % static_cast<uint32_t>(most)) + 1;
    };
    std::thread sender([&] { EXPECT_EQ(far.write(sent, 60s), sent.size()); });
    std::string got;
    for (int32_t idle = 0; got.size() < sent.size() && idle < 100; ++idle) {
        const int32_t count = upTo(150);
        int32_t taken = 0;
        switch (random() % 5) {
        case 0: taken = ComRead(port, buffer, count); break;
        case 1: taken = ComReadTimed(port, buffer, count, 11); break;
        case 2: taken = ComReadBuf(port, buffer, 'x', count, 1) > 0 ? workArea().matchLen.load() : 0; break;
        case 3: taken = ComReadBufToQuiet(port, buffer, count, 1); break;
        default: taken = ComReadBufToEmpty(port, buffer, 'y', count); break;
        }
        ComSetBackgroundTimeout(port, static_cast<uint32_t>(upTo(3) - 1) * 20);
        ASSERT_GE(taken, 0);
        got += begin(static_cast<std::size_t>(taken));
        idle = taken > 0 ? 0 : idle;
    }
    sender.join();
    EXPECT_TRUE(got == sent) << "after " << got.size();
}

} // namespace
} // namespace brisolt::test

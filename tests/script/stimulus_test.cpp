// Waiting for strings: the rules of each call, and what ends them.
#include <functional>
#include <future>

#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 41;

struct Line {
    Pty pty;
    OpenPort port{number, pty.slavePath()};
    Line() { ComSetBackgroundTimeout(port, 0); }
};

const char* const strings[] = {"login:", "word:", "OK"};
const char* const answers[] = {"me|", "secret|", ""};

/// The calls that wait, in one form. The first string alone is for those that take one.
struct Call {
    const char* name;
    std::function<int32_t(int32_t port, int32_t maximum, int32_t seconds)> run;
    bool many, keepsNul, keeps255;
    int32_t timeOver, full, closed, badPort, notOpen;
};

const Call calls[] = {
    {"Stimulus",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulus(port, "login:", "me|", maximum, seconds);
     },
     false, false, false, 2, 3, -1, -1, -1},
    {"StimulusFast",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusFast(port, "login:", "me|", maximum, seconds);
     },
     false, false, false, 2, 3, -1, -1, -1},
    {"Array",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusArray(port, strings, answers, 3, maximum, seconds);
     },
     true, true, true, -2, -3, -14, -1, -1},
    {"ArrayFast",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusArrayFast(port, strings, answers, 3, maximum, seconds);
     },
     true, false, false, -2, -3, -14, -12, -11},
    {"Array2",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusArray2(port, 3, maximum, seconds);
     },
     true, false, true, -2, -3, -1, -1, -11},
};

void fillLists(int32_t port) {
    for (std::size_t i = 0; i < std::size(strings); ++i) {
        EXPECT_EQ(ComAddStimList(port, strings[i], 39), 1);
        EXPECT_EQ(ComAddRespList(port, answers[i], 39), 1);
    }
}

class EachCall : public testing::TestWithParam<Call> {};
INSTANTIATE_TEST_SUITE_P(Stimulus, EachCall, testing::ValuesIn(calls),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(EachCall, FindsAnswersAndEnds) {
    const Call& call = GetParam();
    Line line;
    fillLists(number);
    // Seen in pieces, and answered.
    auto seen = std::async(std::launch::async, [&] { return call.run(number, 1000, 20); });
    line.pty.write("Welcome\r\nlog");
    std::this_thread::sleep_for(20ms);
    line.pty.write("in: ");
    EXPECT_EQ(seen.get(), 1);
    EXPECT_EQ(line.pty.read(3), "me\r");
    EXPECT_GE(ComGetBufLen(number), 15);
    EXPECT_NE(std::string(ComGettestbuffer(number)).find("login:"), std::string::npos);
    ComFlush(number);

    if (call.many) { // of two that are there at once the first in the list wins, whatever their order
        line.pty.write("OK word:");
        ASSERT_TRUE(eventually([] { return ComStatus(number) == 8; }));
        const int32_t first = call.run(number, 1000, 20);
        const bool atOnce = std::string(call.name) == "ArrayFast";
        EXPECT_EQ(first, atOnce ? 2 : 3);
        if (!atOnce) {
            EXPECT_EQ(call.run(number, 1000, 20), 2);
        }
        EXPECT_EQ(line.pty.read(7), "secret\r");
        EXPECT_EQ(line.pty.readToQuiet(), "") << "an empty answer sends nothing";
    }

    line.pty.write("12345");
    EXPECT_EQ(call.run(number, 5, 20), call.full);
    EXPECT_EQ(call.run(number, 5, 0), call.timeOver);

    auto cancelledCall = std::async(std::launch::async, [&] { return call.run(number, 1000, 1000); });
    EXPECT_TRUE(eventually([&] {
        ComCancel(number);
        return cancelledCall.wait_for(5ms) == std::future_status::ready;
    }));
    EXPECT_EQ(cancelledCall.get(), -4);

    ComPortSetEscapeChar(number, 27);
    ComHostPostChar(ComHostThreadId(), 27);
    EXPECT_EQ(call.run(number, 1000, 1000), -4);

    auto closedCall = std::async(std::launch::async, [&] { return call.run(number, 1000, 1000); });
    std::this_thread::sleep_for(50ms);
    line.port.close();
    ASSERT_EQ(closedCall.wait_for(10s), std::future_status::ready);
    const int32_t result = closedCall.get();
    EXPECT_TRUE(result == call.closed) << result;

    EXPECT_EQ(call.run(number, 5, 1), call.notOpen);
    EXPECT_EQ(call.run(300, 5, 1), call.badPort);
}

TEST_P(EachCall, KeepsItsOwnBytes) {
    const Call& call = GetParam();
    Line line;
    fillLists(number);
    line.pty.write(std::string("a\0b\xFF"
                               "c",
                               5));
    ASSERT_TRUE(eventually([] { return ComStatus(number) == 5; }));
    EXPECT_EQ(call.run(number, 1000, 0), call.timeOver);
    std::string kept = "a";
    if (call.keepsNul)
        kept += '\0';
    kept += 'b';
    if (call.keeps255)
        kept += '\xFF';
    kept += 'c';
    ASSERT_EQ(ComGetBufLen(number), static_cast<int32_t>(kept.size()));
    EXPECT_EQ(std::string(ComGettestbuffer(number), kept.size()), kept);

    line.pty.write(std::string("lo\0gin: login:", 14));
    ASSERT_TRUE(eventually([] { return ComStatus(number) == 14; }));
    // A NUL that is kept ends the text; one that is dropped lets what stands on both its sides grow together.
    EXPECT_EQ(call.run(number, 1000, 0), call.keepsNul ? call.timeOver : 1);
}

TEST_P(EachCall, NeverOverrunsItsBuffer) {
    const Call& call = GetParam();
    Line line;
    fillLists(number);
    auto flood = std::async(std::launch::async, [&] { return line.pty.write(std::string(12000, 'x')); });
    EXPECT_EQ(call.run(number, INT32_MAX, 20), call.full);
    EXPECT_GE(ComGetBufLen(number), 9900);
    EXPECT_LE(ComGetBufLen(number), 9999);
    while (ComReadTimed(number, std::string(1000, ' ').data(), 1000, 11) == 1000) {
    }
    flood.get();
}

TEST(Stimulus, WaitsWithoutProcessorTime) {
    const Line line;
    const auto used = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID,
                                      [] { EXPECT_EQ(ComStimulus(number, "never", "", 100, 2), 2); });
    EXPECT_LT(used, 200ms);
}

TEST(Stimulus, ImmediateLooksAtWhatIsThere) {
    Line line;
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", 100), 2);
    line.pty.write(std::string("a\0OK", 4));
    ASSERT_TRUE(eventually([] { return ComStatus(number) == 4; }));
    EXPECT_EQ(ComStimulusImmediate(number, "a OK", "yes|", 100), 1) << "a NUL is a blank here";
    EXPECT_EQ(line.pty.read(4), "yes\r");
    line.pty.write("nothing");
    ASSERT_TRUE(eventually([] { return ComStatus(number) == 7; }));
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", 100), 2);
    EXPECT_EQ(ComStatus(number), 0) << "consumed";
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", -3), 2);
}

TEST(Stimulus, ListsAndArgumentsAreChecked) {
    const Line line;
    const char* const withNull[] = {"a", nullptr};
    const char* const both[] = {"a", "b"};
    EXPECT_EQ(ComStimulusArray(number, withNull, both, 2, 10, 1), -1);
    EXPECT_EQ(ComStimulusArray(number, both, withNull, 2, 10, 1), -1);
    EXPECT_EQ(ComStimulusArrayFast(number, both, withNull, 2, 10, 1), -13);
    EXPECT_EQ(ComStimulusArray(number, nullptr, both, 2, 10, 1), -1);
    EXPECT_EQ(ComStimulus(number, nullptr, "", 10, 1), -1);
    EXPECT_EQ(ComStimulus(number, "", nullptr, 10, 1), -1);

    EXPECT_EQ(ComAddStimList(number, "", 5), -1);
    EXPECT_EQ(ComAddStimList(number, std::string(100, 'x').c_str(), 100), 1);
    EXPECT_EQ(ComStimulusArray2(number, 2, 10, 1), -10);
    for (int i = 1; i < 20; ++i)
        EXPECT_EQ(ComAddStimList(number, "more", 2), 1);
    EXPECT_EQ(ComAddStimList(number, "more", 4), -1);
    EXPECT_EQ(ComStimulusArray2(number, 21, 10, 1), -10);
    EXPECT_EQ(ComFreeStimList(number), 1);
    EXPECT_EQ(ComAddStimList(number, "again", 5), 1);
    EXPECT_EQ(ComAddStimList(number, "again", -1), -1);
    EXPECT_EQ(ComAddRespList(number, "", 0), 1);
    EXPECT_EQ(ComFreeRespList(number), 1);

    EXPECT_EQ(ComGettestbuffer(42), nullptr);
    EXPECT_EQ(reinterpret_cast<intptr_t>(ComGettestbuffer(0)), -1);
    EXPECT_EQ(ComGetBufLen(42), -1);
    std::string text(6, '#');
    EXPECT_EQ(ComGetteststring(number, text.data(), 3), 1);
    EXPECT_EQ(text, std::string("\0\0\0###", 6));
    EXPECT_EQ(ComGetteststring(number, nullptr, 3), -1);
    EXPECT_EQ(ComGetStringPtr(-123456789012), -123456789012);
}

} // namespace
} // namespace brisolt::test

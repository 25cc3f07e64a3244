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
    void waits(const std::string& bytes) {
        pty.write(bytes);
        ASSERT_TRUE(eventually([&] { return ComStatus(number) == static_cast<int32_t>(bytes.size()); }));
    }
};

const char* const strings[] = {"login:", "word:", "OK"};
const char* const answers[] = {"me|", "secret|", ""};

void fillLists(int32_t port) {
    for (std::size_t i = 0; i < std::size(strings); ++i) {
        EXPECT_EQ(ComAddStimList(port, strings[i], 39), 1);
        EXPECT_EQ(ComAddRespList(port, answers[i], 39), 1);
    }
}

/// The calls that wait, in one form: for the first string alone, or for all of them.
struct Call {
    const char* name;
    std::function<int32_t(int32_t port, int32_t maximum, int32_t seconds)> run;
    bool many, batches, keepsNul, keeps255;
    int32_t timeOver, full, closed, badPort, notOpen;

    friend void PrintTo(const Call& call, std::ostream* out) { *out << call.name; }
};
const Call calls[] = {
    {"Stimulus",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulus(port, "login:", "me|", maximum, seconds);
     },
     false, false, false, false, 2, 3, -1, -1, -1},
    {"StimulusFast",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusFast(port, "login:", "me|", maximum, seconds);
     },
     false, true, false, false, 2, 3, -1, -1, -1},
    {"Array",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusArray(port, strings, answers, 3, maximum, seconds);
     },
     true, false, true, true, -2, -3, -14, -1, -1},
    {"ArrayFast",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusArrayFast(port, strings, answers, 3, maximum, seconds);
     },
     true, true, false, false, -2, -3, -14, -12, -11},
    {"Array2",
     [](int32_t port, int32_t maximum, int32_t seconds) {
         return ComStimulusArray2(port, 3, maximum, seconds);
     },
     true, false, false, true, -2, -3, -1, -1, -11},
};

class EachCall : public testing::TestWithParam<Call> {};
INSTANTIATE_TEST_SUITE_P(Stimulus, EachCall, testing::ValuesIn(calls),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(EachCall, FindsAndAnswers) {
    const Call& call = GetParam();
    Line line;
    fillLists(number);
    auto seen = std::async(std::launch::async, [&] { return call.run(number, 1000, 20); });
    line.pty.write("Welcome\r\nlog"); // in two pieces
    std::this_thread::sleep_for(20ms);
    line.pty.write("in:");
    EXPECT_EQ(seen.get(), 1);
    EXPECT_EQ(line.pty.read(3), "me\r");
    EXPECT_STREQ(ComGettestbuffer(number), "Welcome\r\nlogin:");
    EXPECT_EQ(ComGetBufLen(number), 15);

    line.waits("login: tail");
    EXPECT_EQ(call.run(number, 1000, 20), 1);
    EXPECT_EQ(readUpTo(number, 20), call.batches ? "" : " tail") << "only a batch goes past the string";
    EXPECT_EQ(line.pty.read(3), "me\r");

    if (call.many) { // of two that are there at once the first in the list wins, whatever their order
        line.waits("OK word:");
        EXPECT_EQ(call.run(number, 1000, 20), call.batches ? 2 : 3);
        if (!call.batches) {
            EXPECT_EQ(call.run(number, 1000, 20), 2);
        }
        EXPECT_EQ(line.pty.read(7), "secret\r");
        EXPECT_EQ(line.pty.readToQuiet(), "") << "an empty answer sends nothing";
    }
}

TEST_P(EachCall, EndsWithItsOwnResult) {
    const Call& call = GetParam();
    Line line;
    fillLists(number);
    line.pty.write("12345");
    EXPECT_EQ(call.run(number, 5, 20), call.full);
    EXPECT_EQ(call.run(number, 5, 0), call.timeOver);
    EXPECT_EQ(call.run(number, 5, -1000000), call.timeOver);

    auto cancelledCall = std::async(std::launch::async, [&] { return call.run(number, 1000, 1000); });
    EXPECT_TRUE(eventually([&] {
        ComCancel(number);
        return cancelledCall.wait_for(5ms) == std::future_status::ready;
    }));
    EXPECT_EQ(cancelledCall.get(), -4);

    const uint32_t here = ComHostThreadId();
    ComPortSetEscapeChar(number, 27);
    ComSetYield(number, 0); // whatever yield is
    auto typed = std::async(std::launch::async, [here] {
        std::this_thread::sleep_for(30ms);
        return ComHostPostChar(here, 'a') + ComHostPostChar(here, 27);
    });
    EXPECT_EQ(call.run(number, 1000, 1000), -4);
    EXPECT_EQ(typed.get(), 2);
    ComHostPostQuit(here);
    EXPECT_EQ(call.run(number, 1000, 1000), -4);
    ComHostMessage message{};
    EXPECT_EQ(ComHostGetMessage(&message, 0), -1) << "the request stays";

    auto closedCall = std::async(std::launch::async, [&] { return call.run(number, 1000, 1000); });
    EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, sleepHalfASecond), 200ms) << "it does not spin";
    line.port.close();
    ASSERT_EQ(closedCall.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(closedCall.get(), call.closed);
    EXPECT_EQ(call.run(number, 5, 1), call.notOpen);
    EXPECT_EQ(call.run(300, 5, 1), call.badPort);
}

TEST_P(EachCall, KeepsItsOwnBytes) {
    const Call& call = GetParam();
    Line line;
    fillLists(number);
    line.waits(std::string("a\0b\xFF", 4) + "c");
    EXPECT_EQ(call.run(number, 1000, 0), call.timeOver);
    std::string kept = "a";
    kept += call.keepsNul ? std::string(1, '\0') : "";
    kept += 'b';
    kept += call.keeps255 ? "\xFF" : "";
    kept += 'c';
    ASSERT_EQ(ComGetBufLen(number), static_cast<int32_t>(kept.size()));
    EXPECT_EQ(std::string(ComGettestbuffer(number), kept.size()), kept);

    line.waits(std::string("lo\0gin: login:", 14));
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
    EXPECT_EQ(line.port.inside().workArea->stimCount, 3);
    EXPECT_STREQ(line.port.inside().workArea->stimList[0], "login:");
    line.port.close();
    flood.get();
}

TEST(Stimulus, WhatAnEmptyStringMatches) {
    Line line;
    const char* const empty[] = {""};
    EXPECT_EQ(ComStimulus(number, "", "", 100, 100), 1) << "at once";
    EXPECT_EQ(ComStimulusFast(number, "", "", 100, 100), 1);
    EXPECT_EQ(ComStimulusArray(number, empty, empty, 1, 100, 0), -2) << "nothing has come";
    EXPECT_EQ(ComStimulusArrayFast(number, empty, empty, 1, 100, 0), -2);
    line.waits("login:");
    EXPECT_EQ(ComStimulusArray(number, strings, answers, 3, 100, 10), 1);
    EXPECT_EQ(ComStimulusArray(number, strings, answers, 3, 100, 0), -2) << "the last call's bytes are old";
    EXPECT_EQ(ComStimulusArrayFast(number, strings, answers, 3, 100, 0), -2);
    EXPECT_EQ(ComGetBufLen(number), 0);
}

TEST(Stimulus, ImmediateLooksAtWhatIsThere) {
    Line line;
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", 100), 2);
    line.waits(std::string("a\0OK", 4));
    EXPECT_EQ(ComStimulusImmediate(number, "a OK", "yes|", 100), 1) << "a NUL is a blank here";
    EXPECT_EQ(line.pty.read(4), "yes\r");
    line.waits("nothing");
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", 100), 2);
    EXPECT_EQ(ComStatus(number), 0) << "consumed";
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", -3), 2);
    EXPECT_EQ(ComStimulusImmediate(300, "OK", "", 100), -1);
}

TEST(Stimulus, ListsAndArgumentsAreChecked) {
    const Line line;
    const char* const withNull[] = {"a", nullptr};
    EXPECT_EQ(ComStimulusArray(number, strings, withNull, 2, 10, 1), -1);
    EXPECT_EQ(ComStimulusArrayFast(number, strings, withNull, 2, 10, 1), -13);
    EXPECT_EQ(ComStimulusArray(number, nullptr, nullptr, -2, 10, 0), -2);

    EXPECT_EQ(ComAddStimList(number, "", 5), -1);
    EXPECT_EQ(ComAddStimList(number, "again", -1), -1);
    EXPECT_EQ(ComAddStimList(number, std::string(100, 'x').c_str(), 100), 1);
    EXPECT_EQ(ComStimulusArray2(number, 2, 10, 1), -10);
    for (int i = 1; i < 20; ++i)
        EXPECT_EQ(ComAddStimList(number, "more", 2), 1);
    EXPECT_EQ(ComAddStimList(number, "more", 4), -1);
    EXPECT_EQ(ComStimulusArray2(number, 20, 10, 0), -2);
    EXPECT_EQ(ComStimulusArray2Fast(number, 21, 10, 1), -10);
    const PortWorkArea& work = *line.port.inside().workArea;
    EXPECT_EQ(std::string(work.stimList[0]), std::string(39, 'x'));
    EXPECT_STREQ(work.stimList[1], "mo");
    EXPECT_EQ(ComFreeStimList(number), 1);
    EXPECT_EQ(ComAddStimList(number, "again", 5), 1);
    EXPECT_EQ(ComAddRespList(number, "", 0), 1);
    EXPECT_EQ(ComFreeRespList(number), 1);
    EXPECT_EQ(work.respCount, 0);
    std::string text(6, '#');
    EXPECT_EQ(ComGetteststring(number, text.data(), 3), 1);
    EXPECT_EQ(text, std::string("\0\0\0###", 6));
}

} // namespace
} // namespace brisolt::test

// Waiting for strings: the rules of each call, and what ends them.
#include <cstring>
#include <functional>
#include <future>
#include <random>

#include "script/stimulus_match.h"
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 41;

const char* const strings[] = {"login:", "word:", "OK"};
const char* const answers[] = {"me|", "secret|", ""};

struct Line {
    Pty pty;
    OpenPort port{number, pty.slavePath()};
    Line() {
        ComSetBackgroundTimeout(port, 0);
        for (std::size_t i = 0; i < std::size(strings); ++i) {
            EXPECT_EQ(ComAddStimList(port, strings[i], 39), 1);
            EXPECT_EQ(ComAddRespList(port, answers[i], 39), 1);
        }
    }
    void waits(const std::string& bytes) const { arrive(number, pty, bytes); }
};

/// The calls that wait: for the first string alone, for all of them, or for those of the port's list.
struct Call {
    const char* name;
    decltype(&ComStimulus) forOne;
    decltype(&ComStimulusArray) forMany;
    bool batches, keepsNul, keeps255;
    std::size_t atATime; ///< bytes, before it looks for a cancel again
    int32_t timeOver, full, closed;
    bool many() const { return forOne == nullptr; }
    int32_t run(int32_t port, int32_t maximum, int32_t seconds) const {
        return forOne != nullptr    ? forOne(port, strings[0], answers[0], maximum, seconds)
               : forMany != nullptr ? forMany(port, strings, answers, 3, maximum, seconds)
                                    : ComStimulusArray2(port, 3, maximum, seconds);
    }
};
const Call calls[] = {{"Stimulus", ComStimulus, nullptr, false, false, false, 25, 2, 3, -1},
                      {"StimulusFast", ComStimulusFast, nullptr, true, false, false, 100, 2, 3, -1},
                      {"Array", nullptr, ComStimulusArray, false, true, true, 1, -2, -3, -14},
                      {"ArrayFast", nullptr, ComStimulusArrayFast, true, false, false, 100, -2, -3, -14},
                      {"Array2", nullptr, nullptr, false, false, true, 1, -2, -3, -1}};

struct EachCall : testing::TestWithParam<Call> {
    const Call& call = GetParam();
};
INSTANTIATE_TEST_SUITE_P(Stimulus, EachCall, testing::ValuesIn(calls),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(EachCall, FindsAndAnswers) {
    Line line;
    auto seen = std::async(std::launch::async, [&] { return call.run(number, 1000, 20); });
    line.pty.write("Welcome\r\nlog"); // in two pieces
    std::this_thread::sleep_for(20ms);
    line.pty.write("in:");
    EXPECT_EQ(seen.get(), 1);
    EXPECT_EQ(line.pty.read(3), "me\r");
    EXPECT_STREQ(ComGettestbuffer(number), "Welcome\r\nlogin:");
    EXPECT_EQ(ComGetBufLen(number), 15);
    EXPECT_EQ(line.pty.readToQuiet(), "");
}

TEST_P(EachCall, EndsWithItsOwnResult) {
    Line line;
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
        ComHostPostChar(here, 'a'), ComHostPostChar(here, 27);
    });
    EXPECT_EQ(call.run(number, 1000, 1000), -4);
    typed.get();
    ComHostPostQuit(here);
    EXPECT_EQ(call.run(number, 1000, 1000), -4);
    ComHostMessage message{};
    EXPECT_EQ(ComHostGetMessage(&message, 0), -1) << "the request stays";
    auto closedCall = std::async(std::launch::async, [&] { return call.run(number, 1000, 1000); });
    EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, sleepHalfASecond), 200ms) << "it does not spin";
    line.port.close();
    ASSERT_EQ(closedCall.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(closedCall.get(), call.closed);
}

TEST_P(EachCall, KeepsItsOwnBytes) {
    Line line;
    line.waits(std::string("a\0b\xFF", 4) + "c");
    EXPECT_EQ(call.run(number, 1000, 0), call.timeOver);
    const std::string nul(call.keepsNul ? 1 : 0, '\0'),
        kept = "a" + nul + (call.keeps255 ? "b\xFF" : "b") + "c";
    ASSERT_EQ(ComGetBufLen(number), static_cast<int32_t>(kept.size()));
    EXPECT_EQ(std::string(ComGettestbuffer(number), kept.size()), kept);
    line.waits(std::string("lo\0gin: login:", 14));
    // A NUL that is kept ends the text; one that is dropped lets what stands on both its sides grow together.
    EXPECT_EQ(call.run(number, 1000, 0), call.keepsNul ? call.timeOver : 1);
}

/// Bytes that come from a function in the place of the ring, one a call whatever it is asked for.
struct Given : Line {
    static inline std::string pending;
    static inline std::function<void()> onRead;
    explicit Given(
        const std::string& bytes, std::function<void()> first = [] {}) {
        pending = bytes;
        onRead = std::move(first);
        ComSetComStatusFunc(number, [](int32_t) { return static_cast<int32_t>(pending.size()); });
        ComSetComReadFunc(number, [](int32_t, void* to, int32_t) {
            std::exchange(onRead, [] {})();
            const std::size_t got = pending.copy(static_cast<char*>(to), 1);
            pending.erase(0, got);
            return static_cast<int32_t>(got);
        });
    }
};

TEST_P(EachCall, TakesAsManyBytesAtATimeFromAFunction) {
    {
        Given line("OK word: login: tail"); // of those that are there at once the first in the list wins
        const bool inTurn = call.many() && !call.batches;
        EXPECT_EQ(call.run(number, 1000, 20), inTurn ? 3 : 1);
        EXPECT_EQ(inTurn ? call.run(number, 1000, 20) : 2, 2);
        EXPECT_EQ(Given::pending, call.batches ? "" : inTurn ? " login: tail" : " tail");
        EXPECT_EQ(line.pty.readToQuiet(500ms), inTurn ? "secret\r" : "me\r")
            << "an empty answer sends nothing";
    }
    const Given line(std::string(200, 'x'), [] { ComCancel(number); });
    EXPECT_EQ(call.run(number, 1000, 20), -4);
    EXPECT_EQ(200 - Given::pending.size(), call.atATime);
    ComSetComReadFunc(number, [](int32_t, void*, int32_t) { return 0; }); // bytes are reported, none comes
    EXPECT_EQ(call.run(number, 0, call.keepsNul ? 0 : 20), call.keepsNul ? call.timeOver : call.full);
}

TEST_P(EachCall, TellsWhatItSawThoughThePortIsClosedUnderItsAnswer) {
    const Given line("login:");
    ComSetComWriteFunc(number, [](int32_t, const void*, int32_t count) { return ComClose(number), count; });
    EXPECT_EQ(call.run(number, 1000, 20), 1);
    EXPECT_EQ(ComOpenState(number), 0);
}

TEST_P(EachCall, NeverOverrunsItsBuffer) {
    Line line;
    auto flood = std::async(std::launch::async, [&] { return line.pty.write(std::string(12000, 'x')); });
    EXPECT_EQ(call.run(number, INT32_MAX, 20), call.full);
    EXPECT_GE(ComGetBufLen(number), 9900);
    EXPECT_LE(ComGetBufLen(number), 9999);
    EXPECT_EQ(line.port.inside().workArea->stimCount, 3);
    EXPECT_STREQ(line.port.inside().workArea->stimList[0], "login:");
    line.port.close();
    flood.get();
}

TEST(Stimulus, WhatHasBecomeNullIsSkipped) {
    for (const auto run : {ComStimulusArray, ComStimulusArrayFast}) {
        const char *awaited[] = {"login:", "OK"}, *replies[] = {"no", "no"};
        Given line("login: OK", [&] { awaited[0] = replies[1] = nullptr; });
        EXPECT_EQ(run(number, awaited, replies, 2, 100, 20), 2);
        EXPECT_EQ(line.pty.readToQuiet(), "");
    }
}

TEST(Stimulus, WhatAnEmptyStringMatches) {
    Line line;
    const char* const empty[] = {""};
    for (const auto run : {ComStimulus, ComStimulusFast})
        EXPECT_EQ(run(number, "", "", 100, 100), 1) << "at once";
    for (const auto run : {ComStimulusArray, ComStimulusArrayFast}) {
        EXPECT_EQ(run(number, empty, empty, 1, 100, 0), -2) << "nothing has come";
        line.waits("login:");
        EXPECT_EQ(run(number, strings, answers, 3, 100, 10), 1);
        EXPECT_EQ(run(number, strings, answers, 3, 100, 0), -2) << "the last call's bytes are old";
    }
    EXPECT_EQ(ComGetBufLen(number), 0);
}

TEST(Stimulus, ImmediateLooksAtWhatIsThere) {
    Line line;
    line.waits(std::string("a\0OK", 4));
    EXPECT_EQ(ComStimulusImmediate(number, "a OK", "yes|", 100), 1) << "a NUL is a blank here";
    EXPECT_EQ(line.pty.read(4), "yes\r");
    line.waits("nothing");
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", 100), 2);
    EXPECT_EQ(ComStatus(number), 0) << "consumed";
    for (const auto& [count, filled] : {std::pair{3, "not####"}, {9, "nothing"}}) {
        std::string text(9, '#');
        EXPECT_EQ(ComGetteststring(number, text.data(), count), 1);
        EXPECT_EQ(text.substr(0, 7), filled);
    }
    EXPECT_EQ(ComStimulusImmediate(number, "OK", "", -3), 2);
}

TEST(Stimulus, ListsAndArgumentsAreChecked) {
    const Line line;
    const char* const withNull[] = {"a", nullptr};
    EXPECT_EQ(ComStimulusArray(number, strings, withNull, 2, 10, 1), -1);
    EXPECT_EQ(ComStimulusArrayFast(number, strings, withNull, 2, 10, 1), -13);
    EXPECT_EQ(ComStimulusArray(number, nullptr, nullptr, -2, 10, 0), -2);
    EXPECT_EQ(ComFreeStimList(number), 1);
    EXPECT_EQ(ComAddStimList(number, "", 5), -1);
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
    for (const int32_t length : {2, 0, -1}) // the last two are entries without a string
        EXPECT_EQ(ComAddStimList(number, "again", length), 1);
    EXPECT_EQ(work.stimCount, 3);
    EXPECT_EQ(ComStimulusArray2(number, 2, 10, 1), -10);
    EXPECT_EQ(ComFreeRespList(number), 1);
    EXPECT_EQ(work.respCount, 0);
}

// The search looks at new bytes only; here beside one that looks at all of them each time.
TEST(StimulusMatch, FindsWhatSearchingEverythingFinds) {
    const BarePort bare(34);
    std::mt19937 random(5);
    const auto upTo = [&random](std::size_t most) { return random() % (most + 1); };
    int found = 0;
    for (int run = 0; run < 4000; ++run) {
        std::vector<std::string> awaited(1 + upTo(3));
        std::vector<const char*> pointers;
        for (std::string& string : awaited) {
            for (std::size_t left = upTo(30) == 0 ? 0 : 1 + upTo(5); left > 0; --left)
                string += "ab\xFF"[upTo(2)];
            pointers.push_back(string.c_str());
        }
        const Dropped dropped{.nul = upTo(1) == 1, .byte255 = upTo(1) == 1};
        StimulusMatch match(*bare, pointers, dropped);
        std::string kept;
        const auto count = std::ssize(pointers);
        auto first = count;
        for (int adds = 0; adds < 40 && first == count; ++adds) {
            std::vector<uint8_t> bytes(upTo(1) == 1 ? 1 : upTo(6));
            for (uint8_t& byte : bytes) {
                byte = std::array<uint8_t, 12>{97, 98, 97, 98, 97, 98, 97, 98, 99, 255, 255, 0}[upTo(11)];
                if (!(byte == 0 && dropped.nul) && !(byte == 255 && dropped.byte255))
                    kept += static_cast<char>(byte);
            }
            const auto isIn = [&kept](const char* string) {
                return std::strstr(kept.c_str(), string) != nullptr;
            };
            first = std::find_if(pointers.begin(), pointers.end(), isIn) - pointers.begin();
            ASSERT_EQ(match.add(bytes), first < count ? static_cast<int32_t>(first) : -1);
            ASSERT_EQ(std::string(bare->workArea->matchBuf, static_cast<std::size_t>(match.length()) + 1),
                      kept + '\0');
        }
        found += first < count ? 1 : 0;
    }
    EXPECT_TRUE(found > 500 && found < 3900) << found;
}

} // namespace
} // namespace brisolt::test

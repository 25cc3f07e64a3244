// What ends a wait and what does not, how soon, and at what price in processor time: of all calls that wait.
#include <atomic>
#include <deque>
#include <future>
#include <random>

#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 11;
constexpr auto promptly = 10s; ///< every wait here would last a minute
constexpr int32_t goesOn = INT32_MAX;

char buffer[100];

struct Wait {
    const char* what;
    int32_t (*call)(); ///< for a minute of real time, with the clock fifty times as fast
    // The results that escape (27), quit, cancel and close have; goesOn: none, the wait takes no notice.
    int32_t escaped, quit, cancelled;
    int32_t closed = -1;
};
const std::vector<Wait> waits{
    {"ComSleep", [] { return ComSleep(port, 3000); }, -1, -1, goesOn},
    {"ComSleepMS", [] { return ComSleepMS(port, 3'000'000); }, -1, -1, goesOn},
    {"ComReadTimed", [] { return ComReadTimed(port, buffer, 9, 300'000); }, goesOn, goesOn, goesOn},
    {"ComReadBuf", [] { return ComReadBuf(port, buffer, 256, 99, 3000); }, 4, 4, 4},
    {"ComReadBufToQuiet", [] { return ComReadBufToQuiet(port, buffer, 99, 30'000); }, -1, -1, -1},
    {"Com_Flush", [] { return Com_Flush(port, 3000); }, goesOn, 1, goesOn},
    {"ComBreak", [] { return ComBreak(port); }, goesOn, goesOn, goesOn},
    {"ComDTR", [] { return ComDTR(port); }, goesOn, goesOn, goesOn},
    {"ComPuts", [] { return ComPuts(port, std::string(3000, '~').c_str()); }, goesOn, 1, goesOn},
    {"ComDial", [] { return ComDial(port, "1"); }, 0, 0, -1},
    {"ComRecvA", [] { return ComRecvA(port, "/dev/null", 27, 26, 3000); }, 1, 1, 1, 1},
    {"ComHostRead", [] { return ComHostRead(port, buffer, 9, -1); }, goesOn, goesOn, -3},
    {"ComHostWaitEvent",
     [] {
         ComHostCounters seen{};
         seen.size = sizeof seen;
         return ComHostWaitEvent(port, COM_HOST_EVENT_GONE, &seen, -1);
     },
     goesOn, goesOn, -3},
};

/// A wait on a thread of its own, whose queue and results are the test's.
class Waiting {
public:
    explicit Waiting(const Wait& wait) {
        std::promise<uint32_t> started;
        auto identifier = started.get_future();
        result_ = std::async(std::launch::async, [&started, call = wait.call] {
            started.set_value(ComHostThreadId());
            return call();
        });
        thread = identifier.get();
    }
    /// Its result, or goesOn when it does not end.
    int32_t result(std::chrono::milliseconds limit) {
        return result_.wait_for(limit) == std::future_status::ready ? result_.get() : goesOn;
    }

    uint32_t thread = 0;

private:
    std::future<int32_t> result_;
};

std::atomic<int32_t> asked{0};
std::atomic<int32_t> answer{0};
/// In the place of the escape character. Nothing can wake a wait for its sake: it is asked again and again.
int32_t escapeFunction(int32_t number, int32_t character) {
    EXPECT_EQ(number, port);
    if (character == 255) // the port's own thread, for the messages it may have
        return 0;
    EXPECT_EQ(character, 27);
    ++asked;
    return answer;
}

struct Ending {
    const char* what;
    const char* mode;
    int32_t yield;
    int32_t Wait::*expected;
    void (*happen)(OpenPort&, const std::deque<Waiting>&);
};
using Threads = std::deque<Waiting>;
const auto closes = [](OpenPort& open, const Threads&) { EXPECT_EQ(open.close(), 1); };
const std::vector<Ending> endings{
    {"escape", "threaded", 1, &Wait::escaped,
     [](OpenPort&, const Threads& all) {
         for (const Waiting& each : all) {
             ComHostPostChar(each.thread, 'x');
             ComHostPostChar(each.thread, 27);
         }
     }},
    {"escape function", "threaded", 1, &Wait::escaped,
     [](OpenPort&, const Threads&) {
         EXPECT_TRUE(eventually([] { return asked > 50; }));
         answer = 1;
     }},
    {"quit", "threaded", 1, &Wait::quit,
     [](OpenPort&, const Threads& all) {
         for (const Waiting& each : all)
             ComHostPostQuit(each.thread);
     }},
    {"cancel", "threaded", 1, &Wait::cancelled,
     [](OpenPort&, const Threads&) { EXPECT_EQ(ComCancel(port), 1); }},
    {"close", "threaded", 1, &Wait::closed, closes},
    {"close without yield", "threaded", 0, &Wait::closed, closes},
    {"close in direct mode", "THUNK", 1, &Wait::closed, closes},
    {"close in direct mode without yield", "THUNK", 0, &Wait::closed, closes},
};

struct Waits : testing::Test {
    Pty far;
};

// All waits at once on a port. Until they end they sleep.
TEST_F(Waits, EndAsEachOfThemIsToldTo) {
    const FastClock fast;
    for (const Ending& ending : endings) {
        SCOPED_TRACE(ending.what);
        OpenPort open(port, far.slavePath(), {.name = ending.mode});
        ComPortSetEscapeChar(port, 27);
        ComSetYield(port, ending.yield);
        const bool isFunction = std::string_view(ending.what) == "escape function";
        asked = answer = 0;
        open.record().breakTime = open.record().dtrPulseTime = 300'000;
        open.record().dialTimeout = 3000;
        open.record().escapeFunc = isFunction ? escapeFunction : nullptr;
        std::deque<Waiting> waiting;
        for (const Wait& wait : waits)
            waiting.emplace_back(wait);
        std::this_thread::sleep_for(100ms);
        if (!isFunction) {
            EXPECT_LT(processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, sleepHalfASecond), 100ms);
        }
        for (std::size_t i = 0; i < waits.size(); ++i)
            EXPECT_EQ(waiting[i].result(0ms), goesOn) << waits[i].what;
        ending.happen(open, waiting);
        for (std::size_t i = 0; i < waits.size(); ++i) {
            const int32_t result = waits[i].*ending.expected;
            EXPECT_EQ(waiting[i].result(result == goesOn ? 20ms : promptly), result) << waits[i].what;
        }
        if (ComOpenState(port) == 1)
            open.close(); // ends those that go on
    }
}

TEST_F(Waits, WithoutYieldASleepTakesNoNotice) {
    OpenPort open(port, far.slavePath());
    ComPortSetEscapeChar(port, 27);
    ComSetYield(port, 0);
    ComHostPostChar(ComHostThreadId(), 27);
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComSleepMS(port, 300), 1);
    EXPECT_EQ(ComSleep(port, 1), 1);
    EXPECT_GE(clock::ticks() - start, 1300U);
    // Another thread may let it look again in the middle.
    auto setter = std::async(std::launch::async, [] {
        std::this_thread::sleep_for(100ms);
        ComSetYield(port, 1);
    });
    FastClock fast(10);
    EXPECT_EQ(ComSleepMS(port, 60000), -1);
}

TEST_F(Waits, HandleTheMessagesBeforeTheirEnd) {
    OpenPort open(port, far.slavePath());
    std::vector<uint32_t> handled;
    const int32_t window =
        ComHostCreateWindow([](void* list, int32_t, uint32_t message, uintptr_t,
                               intptr_t) { static_cast<std::vector<uint32_t>*>(list)->push_back(message); },
                            &handled);
    const auto postAll = [&] {
        ComHostPostMessage(window, 0x400, 0, 0);
        ComHostPostChar(ComHostThreadId(), 'a');
        ComHostPostMessage(window, COM_HOST_MESSAGE_CHAR, 'b', 0);
        ComHostPostChar(ComHostThreadId(), 0x100 + 27);
        ComHostPostMessage(window, 0x401, 0, 0);
    };
    postAll();
    EXPECT_EQ(ComEscape(port, 27), 1);
    EXPECT_EQ(handled, (std::vector<uint32_t>{0x400, COM_HOST_MESSAGE_CHAR}));
    EXPECT_EQ(ComEscape(port, 27), 0);
    EXPECT_EQ(handled.back(), 0x401U);
    handled.clear();
    postAll();
    EXPECT_EQ(ComServiceMessagePump(), 0);
    EXPECT_EQ(handled, (std::vector<uint32_t>{0x400, COM_HOST_MESSAGE_CHAR, 0x401}));

    // A timed read lets them through while it sleeps, and nothing but its bytes ends it.
    const int32_t writer = ComHostCreateWindow(
        [](void* end, int32_t, uint32_t, uintptr_t, intptr_t) { static_cast<Pty*>(end)->write("bytes"); },
        &far);
    auto later = std::async(std::launch::async, [writer] {
        std::this_thread::sleep_for(100ms);
        ComHostPostMessage(writer, 0x400, 0, 0);
    });
    EXPECT_EQ(readTimed(port, 5, 6000), "bytes");

    // A quit is seen before all messages, and stays. No wait turns into a busy one behind it.
    postAll();
    ComHostPostQuit(ComHostThreadId());
    EXPECT_EQ(ComServiceMessagePump(), 1);
    EXPECT_EQ(ComEscape(port, 27), 1);
    EXPECT_EQ(handled.size(), 3U);
    EXPECT_LT(processorTimeOf(CLOCK_THREAD_CPUTIME_ID, [] { EXPECT_EQ(readTimed(port, 5, 50), ""); }), 50ms);
    ComHostDestroyWindow(writer);
    ComHostDestroyWindow(window);
}

// The port's thread and a caller pass the watch over the device to and fro; a byte must not fall in between.
TEST_F(Waits, NoByteIsOverlookedBetweenThreadAndCaller) {
    OpenPort open(port, far.slavePath());
    std::mt19937 random(7);
    const auto pauseNowAndThen = [&random] {
        if (random() % 4 == 0)
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 45000));
    };
    for (uint32_t pace : {10000U, 50U, 0U}) {
        ComSetBackgroundTimeout(port, pace);
        auto echo = std::async(std::launch::async, [this] {
            for (std::string byte = far.read(1); byte != "e"; byte = far.read(1))
                far.write(byte);
        });
        for (int32_t turn = 0; turn < 150; ++turn) {
            EXPECT_EQ(send(port, "x"), 1);
            pauseNowAndThen();
            ASSERT_EQ(readTimed(port, 1, 700), "x") << "pace " << pace << " turn " << turn;
            pauseNowAndThen();
        }
        EXPECT_EQ(send(port, "e"), 1);
        echo.get();
    }
}

} // namespace
} // namespace brisolt::test

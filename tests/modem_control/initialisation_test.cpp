// The initialisation of a modem: what it sends, what its log says word for word, when it tries again and when it
// gives up, and what ends it.
#include <cstdio>
#include <fstream>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "modem/simulator.h"
#include "modem/terminal.h"
#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

using simulated::Mishap;
using Lines = std::vector<std::string>;

constexpr int32_t port = 23;

/// The arguments of a sequence. The default sends everything and keeps the port's strings.
struct Request {
    std::string database = "unread";
    std::string modem = "any";
    int32_t reset = 1, init = 1, compression = 1, flow = 1, errorControl = 1, autoAnswer = 1;
    int32_t kept = 4;

    template <class Call> int32_t with(Call call, const LogFile& log) const {
        return call(port, database.c_str(), modem.c_str(), reset | kept, init | kept, compression | kept,
                    flow | kept, errorControl | kept, autoAnswer, log.path().c_str());
    }
};

class Initialisation : public testing::Test {
protected:
    int32_t start(const Request& request = {}) { return request.with(ComSetModem_Start, log); }
    int32_t run(const Request& request = {}) { return request.with(ComSetModem, log); }
    /// It has been silent; now it hears something from beside.
    void makeItAnswer() {
        modem.clearFaults();
        ComPuts(port, "AT|");
    }
    static bool awaitsAnswer() { return ComGetModem_State(port) % 100 == 1; }
    /// Steps until it is over. `beforeLook` runs before each step that may look at an answer.
    template <class Look> int32_t steps(Look beforeLook) {
        const auto end = SteadyClock::now() + 60s; // only a fault takes so long
        while (SteadyClock::now() < end) {
            if (awaitsAnswer())
                beforeLook();
            if (const int32_t result = ComSetModem_Next(port); result != 5)
                return result;
            std::this_thread::sleep_for(100us);
        }
        return 0;
    }
    /// Steps in which every answer is there before it is looked at.
    int32_t stepsInTime() {
        return steps([] { EXPECT_TRUE(eventually([] { return ComStatus(port) >= 2; })); });
    }

    LogFile log;
    simulated::Exchange exchange;
    simulated::Simulator modem{simulated::ptyLine(), exchange, {.stored = "E0"}};
    OpenPort open{port, modem.path()};
};

const Lines allCommands{"ATZ", "AT&F&C1&D2", "AT&K3", "ATS46=138", "AT&Q5S36=7S48=7", "ATS0=1"};
const std::string kept = " All Modem Parameters set for override - no need for DataBase lookup";

// ---- the way through --------------------------------------------------------------------------------------

TEST_F(Initialisation, InOneCallWithAModemThatAnswers) {
    EXPECT_EQ(run(), 1);
    EXPECT_EQ(modem.commands(), allCommands);
    EXPECT_EQ(ComGetModem_State(port), 100);
    EXPECT_EQ(
        log.entries(),
        (Lines{kept, " Sending Reset to Modem - String:ATZ|", "Got OK from Reset starting INIT",
               " Sending Init to Modem - String:AT&F&C1&D2|", "Got OK from INIT starting Flow Control",
               " Sending HDWR Flow to Modem - String:AT&K3|", "Got OK from Flow starting Compression Control",
               " Sending Compression ON to Modem - String:ATS46=138|",
               "Got OK from COMPRESSION starting ERROR Control",
               " Sending Error Control ON to Modem - String:AT&Q5S36=7S48=7|", "Got OK from ERROR CONTROL",
               " Sending AutoAnswer ON to Modem - String:ATS0=1|", "Got OK from AA Setting - We Are Done"}));
    EXPECT_NE(log.text().find("Protocol:MODEM SETTINGS"), std::string::npos);
}

// Each answer comes in two pieces, so that the look begins with the deadline over and the answer not there.
TEST_F(Initialisation, AnswersThatComeLate) {
    constexpr int32_t number = 24;
    Pty far;
    OpenPort bare{number, far.slavePath()};
    ASSERT_EQ(ComSetModem_Start(number, "unread", "", 5, 5, 5, 5, 5, 1, log.path().c_str()), 5);
    std::vector<int32_t> states;
    int32_t result = 5;
    for (std::size_t i = 0; result == 5 && i < allCommands.size(); ++i) {
        ASSERT_EQ(ComSetModem_Next(number), 5);
        EXPECT_EQ(far.read(allCommands[i].size() + 1), allCommands[i] + '\r');
        far.write("O"); // one character is not worth a look before the time is over
        ASSERT_TRUE(eventually([] { return ComStatus(number) == 1; }));
        states.push_back(ComGetModem_State(number));
        EXPECT_EQ(ComSetModem_Next(number), 5);
        EXPECT_EQ(ComGetModem_State(number), states.back());
        {
            const FastClock fast(100);
            clock::sleep(3001);
        }
        auto rest = std::async(std::launch::async, [&far] {
            eventually([] { return ComStatus(number) == 0; }); // it has begun to look
            far.write("K\r\n");
        });
        result = ComSetModem_Next(number);
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(states, (std::vector<int32_t>{101, 201, 401, 301, 501, 601}));
    EXPECT_EQ(log.entries({"Got", "Did"}).size(), states.size());
}

TEST_F(Initialisation, FlagsChooseWhatIsSent) {
    struct Case {
        Request request;
        Lines commands;
    };
    const std::vector<Case> cases{
        {{.reset = 0, .init = 0, .compression = 0, .flow = 2, .errorControl = 2, .autoAnswer = 0},
         {"AT&K4", "ATS46=136", "AT&Q5S36=4S48=7", "ATS0=0"}},
        {{.reset = 2, .init = 0, .compression = 2, .flow = 3, .errorControl = 3, .autoAnswer = 2},
         {"AT&K0", "ATS46=136", "AT&Q6S36=3S48=128", "ATS0=0"}},
        {{.reset = -1, .init = 3, .compression = 3, .flow = 0, .errorControl = 0, .autoAnswer = 3},
         {"ATZ", "AT&F&C1&D2", "AT&K0", "ATS46=138", "AT&Q6S36=3S48=128", "ATS0=1"}},
    };
    std::size_t before = 0;
    ComCancel(port); // nothing runs: forgotten by the steps, too
    for (const Case& each : cases) {
        ASSERT_EQ(start(each.request), 5);
        EXPECT_EQ(stepsInTime(), 1);
        Lines sent = modem.commands();
        sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_EQ(sent, each.commands);
        before += sent.size();
    }
}

// ---- modems that do not answer ----------------------------------------------------------------------------

// What has come is taken within a second of a clock that is fast only by so much, also on a busy machine.
constexpr uint32_t unhurried = 20;

TEST_F(Initialisation, ResetAndInitialisationAreTriedSevenTimes) {
    modem.add({.mishap = Mishap::silence});
    const FastClock fast(100);
    const uint32_t begin = clock::ticks();
    EXPECT_EQ(run(), -5);
    EXPECT_GE(clock::ticks() - begin, 7U * 6100 + 6 * 2000);
    EXPECT_EQ(modem.commands(), Lines(7, "ATZ"));
    EXPECT_EQ(ComGetModem_State(port), 101);
    const Lines once{" Sending Reset to Modem - String:ATZ|", "Did not get OK from RESET - Got:"};
    Lines expected{kept};
    for (int i = 0; i < 7; ++i)
        expected.insert(expected.end(), once.begin(), once.end());
    const std::string last = "Failed to get response from RESET command for 5 tries - check modem";
    expected.push_back(last);
    EXPECT_EQ(log.entries(), expected);

    EXPECT_EQ(ComSetModem_Next(port), -5); // looks for the answer once more
    EXPECT_EQ(log.entries().back(), last);
    makeItAnswer();
    ASSERT_TRUE(eventually([] { return ComStatus(port) >= 2; }));
    EXPECT_EQ(ComSetModem_Next(port), 5);
    EXPECT_EQ(ComGetModem_State(port), 200);

    modem.add({.mishap = Mishap::refusal, .text = "&F"});
    clock::setTestScale(unhurried);
    EXPECT_EQ(stepsInTime(), -6) << "a wrong answer counts as none";
    EXPECT_EQ(ComGetModem_State(port), 201);
    EXPECT_EQ(log.entries({"Did not get OK from INIT"}),
              Lines(7, "Did not get OK from INIT - Got:\r\nERROR\r\n"));
}

// The modem passes its reset on to the far end; between two tries it hears the escape.
TEST(InitialisationInACall, EndsTheCall) {
    constexpr int pace = 10;
    const FastClock fast(pace);
    simulated::Exchange exchange;
    simulated::Simulator modem(simulated::ptyLine(), exchange, {.timeScale = pace, .stored = "E0"});
    const simulated::Simulator far(simulated::ptyLine(), exchange,
                                   {.number = "200", .timeScale = pace, .stored = "E0S0=1"});
    Terminal terminal(far.path());
    const OpenPort open{port, modem.path()};
    ComPuts(port, "ATD200|");
    ASSERT_TRUE(modem.waitFor(simulated::Phase::online));
    terminal.until("CONNECT 33600\r\n");
    EXPECT_EQ(ComSetModem(port, "unread", "", 5, 4, 4, 4, 4, 0, nullptr), 1);
    EXPECT_EQ(terminal.until("NO CARRIER"), "ATZ\r+++\r\nNO CARRIER");
    EXPECT_EQ(modem.commands(),
              (Lines{"ATD200", "ATZ", "AT&K0", "ATS46=136", "AT&Q6S36=3S48=128", "ATS0=0"}));
}

TEST_F(Initialisation, TheOtherCommandsAreSentThreeTimesAndLeft) {
    std::size_t tried = 0;
    for (const Mishap mishap : {Mishap::refusal, Mishap::silence}) {
        const FastClock fast(mishap == Mishap::silence ? 100 : unhurried);
        modem.clearFaults();
        modem.add({.mishap = mishap});
        ASSERT_EQ(start({.reset = 0, .init = 0}), 5);
        EXPECT_EQ(mishap == Mishap::silence ? steps([] {}) : stepsInTime(), 1);
        EXPECT_EQ(ComGetModem_State(port), 100);
        tried += 4 * 3;
        EXPECT_EQ(log.entries({"Did not get OK"}).size(), tried);
    }
    EXPECT_EQ(modem.commands().size(), tried);
}

TEST_F(Initialisation, ALongWrongAnswerIsCutInTheLog) {
    std::snprintf(open.record().flowControlHdwrStr, sizeof open.record().flowControlHdwrStr,
                  "ATI3I3I3I3I3I3I3X9|");
    ASSERT_EQ(start({.reset = 0, .init = 0}), 5);
    FastClock fast(unhurried);
    EXPECT_EQ(stepsInTime(), 1);
    const Lines misses = log.entries({"Did not get OK"});
    EXPECT_EQ(misses.size(), 3U);
    const std::string beginning = "Did not get OK from Flow - Got:";
    for (const std::string& line : misses) {
        EXPECT_TRUE(line.starts_with(beginning + "\r\nbrisolt modem simulator\r\n\r\nbrisolt")) << line;
        EXPECT_EQ(line.size(), beginning.size() + 99);
    }
}

// ---- what ends it -----------------------------------------------------------------------------------------

class InitialisationOfASilentModem : public Initialisation {
protected:
    InitialisationOfASilentModem() { modem.add({.mishap = Mishap::silence}); }
    /// Runs until something ends it, long before the first answer is given up, and next to idle until then.
    void expectEnded() {
        const auto begin = SteadyClock::now();
        EXPECT_LT(processorTimeOf(CLOCK_THREAD_CPUTIME_ID, [this] { EXPECT_EQ(run(), -1); }), 100ms);
        EXPECT_LT(SteadyClock::now() - begin, 2500ms);
    }
};

TEST_F(InitialisationOfASilentModem, EndsByACancelOrTheClose) {
    const auto afterHalfASecond = [](auto action) {
        return std::async(std::launch::async, [action] {
            sleepHalfASecond();
            action();
        });
    };
    ComCancel(port); // nothing runs: forgotten
    auto cancel = afterHalfASecond([] { ComCancel(port); });
    expectEnded();
    cancel.get();
    auto close = afterHalfASecond([this] { open.close(); });
    expectEnded();
    close.get();
    EXPECT_EQ(ComSetModem_Next(port), -1);
    EXPECT_EQ(ComGetModem_State(port), -1);
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(run(), -1);
    const OpenPort again{port, modem.path()};
    EXPECT_EQ(ComGetModem_State(port), 100) << "a port starts afresh";
}

TEST_F(InitialisationOfASilentModem, MissesNoCancel) {
    // One that comes when the answer is about to be looked for.
    static std::atomic<int32_t> asked;
    open.record().statusFunc = +[](int32_t number) -> int32_t {
        if (ComGetModem_State(number) == 101 && ++asked == 1)
            ComCancel(number);
        return asked > 0 ? 2 : 0;
    };
    expectEnded();
    EXPECT_TRUE(eventually([this] { return modem.commands() == Lines(1, "ATZ"); }));
    open.record().statusFunc = nullptr;

    // One that a message handled meanwhile wipes out.
    const int32_t window = ComHostCreateWindow(
        [](void*, int32_t, uint32_t, uintptr_t, intptr_t) {
            ComCancel(port);
            readTimed(port, 1, 11);
            EXPECT_EQ(ComGetModem_State(port), 101);
        },
        nullptr);
    ComHostPostMessage(window, 0x400, 0, 0);
    expectEnded();
    ComHostDestroyWindow(window);
}

TEST_F(InitialisationOfASilentModem, LetsMessagesPassAndTheEscapeKeyDoesNotEndIt) {
    static std::atomic<int32_t> handled;
    handled = 0;
    const int32_t window =
        ComHostCreateWindow([](void*, int32_t, uint32_t, uintptr_t, intptr_t) { ++handled; }, nullptr);
    const uint32_t self = ComHostThreadId();
    std::thread other([&] {
        EXPECT_TRUE(eventually([] { return ComGetModem_State(port) == 101; }));
        ComHostPostMessage(window, 0x400, 0, 0);
        ComHostPostChar(self, 27);
        EXPECT_TRUE(eventually([] { return handled == 1; }, 2s)); // at once, not when the answer is late
        makeItAnswer();
    });
    EXPECT_EQ(run(), 1);
    other.join();
    ComHostMessage message;
    EXPECT_EQ(ComHostGetMessage(&message, 0), 0) << "the escape key is handled";
    ComHostDestroyWindow(window);
}

// ---- strings of the database ------------------------------------------------------------------------------

class InitialisationStrings : public Initialisation {
protected:
    Request request(const std::string& name, int32_t keptStrings = 0) const {
        return {.database = path, .modem = name, .kept = keptStrings};
    }
    void write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
    TempDir directory;
    std::string path = directory.file("modems.txt");
};

TEST_F(InitialisationStrings, AreThoseOfTheModemCutToTheirFields) {
    const std::string longInit(99, 'I'), longReset(60, 'R');
    write("other!i1!3!r1!c1!d1!o1!h1!s1!e1!f1!g1\r\nwanted!" + longInit + "!3!" + longReset +
          "!c2!d2!o2!h2!s2!e2!f2!g2\r\n");
    ASSERT_EQ(start(request("wanted")), 5);
    EXPECT_EQ(log.entries({" Searching", "Modem Name", "Setting Reset"}),
              (Lines{" Searching through modem database:" + path + " for modem type:wanted",
                     "Modem Name Match: wanted", "Setting Reset_String=" + longReset}));
    const PortRecord& record = open.record();
    EXPECT_EQ((Lines{record.initStr, record.resetStr, record.compressionOnStr, record.compressionOffStr,
                     record.flowControlOffStr, record.flowControlHdwrStr, record.flowControlSoftStr,
                     record.errorControlOnStr, record.errorControlOffStr, record.errorControlForcedStr,
                     record.setAAStr}),
              (Lines{longInit, longReset.substr(0, 31), "c2", "d2", "o2", "h2", "s2", "e2", "f2", "g2",
                     "ATS0=1|"}));
}

TEST_F(InitialisationStrings, KeptOnesAndThoseTheLineLacksStayThePorts) {
    write("other!i1!3!r1!c1!d1!o1!h1!s1!e1!f1!g1\r\nshort!i2!3!r2!c2\r\n");
    Request keepsInit = request("short");
    keepsInit.init |= 4;
    ASSERT_EQ(start(keepsInit), 5);
    const PortRecord& record = open.record();
    EXPECT_STREQ(record.initStr, "AT&F&C1&D2|");
    EXPECT_STREQ(record.resetStr, "r2");
    EXPECT_STREQ(record.compressionOnStr, "c2");
    EXPECT_STREQ(record.compressionOffStr, "ATS46=136|");
    EXPECT_STREQ(record.errorControlForcedStr, "AT&Q5S36=4S48=7|");
    EXPECT_TRUE(log.entries({"Setting Init"}).empty());

    Request keepsReset = request("other");
    keepsReset.reset |= 4;
    ASSERT_EQ(start(keepsReset), 5);
    EXPECT_STREQ(record.initStr, "i1");
    EXPECT_STREQ(record.resetStr, "r2");
}

TEST_F(InitialisationStrings, ProblemsWithTheDatabase) {
    write("a!i!3!r\r\nb!i!3!r\r\nc!i!3!r");
    EXPECT_EQ(start(request("B\xE9")), -2);
    EXPECT_EQ(run(request("d")), -2);
    EXPECT_EQ(run(request(std::string(5000, 'n'))), -2);
    EXPECT_EQ(start(request("c")), 5); // the last line, without its end

    Request missing = request("a");
    missing.database = directory.file("none");
    EXPECT_EQ(start(missing), -1);
    EXPECT_EQ(run(missing), -2);

    for (const std::string& name : {std::string(), std::string(260, 'p')}) {
        Request bad = request("a", 4);
        bad.database = name;
        EXPECT_EQ(start(bad), -1);
        EXPECT_EQ(run(bad), -1);
    }
    EXPECT_EQ(ComSetModem(port, nullptr, "a", 4, 4, 4, 4, 4, 0, nullptr), -1);
    EXPECT_TRUE(modem.commands().empty());
}

// A listing that the program has begun goes on beside it.
TEST_F(InitialisationStrings, DoNotDisturbAListing) {
    write("a!i!3!r\r\nb!i!3!r\r\n");
    char name[101], rest[101];
    ASSERT_EQ(ComGetModem_Start(port, path.c_str(), name, rest, rest, rest, rest, rest, rest, rest, rest,
                                rest, rest, rest),
              5);
    EXPECT_EQ(start(request("b")), 5);
    EXPECT_EQ(ComGetModem_Next(port, name, rest, rest, rest, rest, rest, rest, rest, rest, rest, rest, rest),
              5);
    EXPECT_STREQ(name, "b");
    ComGetModem_End(port);
}

} // namespace
} // namespace brisolt::test

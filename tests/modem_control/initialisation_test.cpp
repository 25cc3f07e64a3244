// The initialisation of a modem: what it sends, what its log says word for word, when it tries again and when it
// gives up, and what ends it.
#include <cstring>
#include <future>

#include "modem/simulator.h"
#include "modem/terminal.h"

namespace brisolt::test {
namespace {

using simulated::Mishap;
using Lines = std::vector<std::string>;

constexpr int32_t port = 23;
// So fast runs the modem's time; no faster, or a busy machine would pull the three characters of an escape apart.
constexpr int pace = 2;

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
    /// Steps until it is over.
    static int32_t steps() {
        int32_t result = 5;
        EXPECT_TRUE(eventually([&] { return (result = ComSetModem_Next(port)) != 5; }, 60s));
        return result;
    }
    /// The commands that the modem got since the last look.
    void expectSent(const Lines& commands) {
        EXPECT_TRUE(eventually([&] { return modem.commands().size() >= seen + commands.size(); }));
        const Lines all = modem.commands();
        EXPECT_EQ(Lines(all.begin() + static_cast<std::ptrdiff_t>(seen), all.end()), commands);
        seen = all.size();
    }

    LogFile log;
    std::size_t seen = 0;
    simulated::Exchange exchange;
    simulated::Simulator modem{simulated::ptyLine(), exchange, {.timeScale = pace, .stored = "E0"}};
    OpenPort open{port, modem.path()};
};

const Lines allCommands{"ATZ", "AT&F&C1&D2", "AT&K3", "ATS46=138", "AT&Q5S36=7S48=7", "ATS0=1"};
const std::string kept = " All Modem Parameters set for override - no need for DataBase lookup";

TEST_F(Initialisation, InOneCallWithAModemThatAnswers) {
    EXPECT_EQ(run(), 1);
    expectSent(allCommands);
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
    constexpr int32_t states[] = {101, 201, 401, 301, 501, 601};
    for (std::size_t i = 0; i < allCommands.size(); ++i) {
        ASSERT_EQ(ComSetModem_Next(number), 5);
        EXPECT_EQ(far.read(allCommands[i].size() + 1), allCommands[i] + '\r');
        far.write("O"); // one character is not worth a look before the time is over
        ASSERT_TRUE(eventually([] { return ComStatus(number) == 1; }));
        EXPECT_EQ(ComSetModem_Next(number), 5);
        EXPECT_EQ(ComGetModem_State(number), states[i]);
        clock::setTestScale(100);
        clock::sleep(3001);
        clock::setTestScale(1);
        auto rest = std::async(std::launch::async, [&far] {
            eventually([] { return ComStatus(number) == 0; }); // it has begun to look
            far.write("K\r\n");
        });
        EXPECT_EQ(ComSetModem_Next(number), i + 1 == allCommands.size() ? 1 : 5);
    }
    EXPECT_EQ(log.entries({"Got", "Did"}).size(), allCommands.size());
}

TEST_F(Initialisation, FlagsChooseWhatIsSent) {
    const std::vector<std::pair<Request, Lines>> cases{
        {{.reset = 0, .init = 0, .compression = 0, .flow = 2, .errorControl = 2, .autoAnswer = 0},
         {"AT&K4", "ATS46=136", "AT&Q5S36=4S48=7", "ATS0=0"}},
        {{.reset = 2, .init = 0, .compression = 2, .flow = 3, .errorControl = 3, .autoAnswer = 2},
         {"AT&K0", "ATS46=136", "AT&Q6S36=3S48=128", "ATS0=0"}},
        {{.reset = -1, .init = 3, .compression = 3, .flow = 0, .errorControl = 0, .autoAnswer = 3},
         {"ATZ", "AT&F&C1&D2", "AT&K0", "ATS46=138", "AT&Q6S36=3S48=128", "ATS0=1"}},
    };
    ComCancel(port); // nothing runs: forgotten by the steps, too
    for (const auto& [request, commands] : cases) {
        ASSERT_EQ(start(request), 5);
        EXPECT_EQ(steps(), 1);
        expectSent(commands);
    }
}

TEST_F(Initialisation, ResetAndInitialisationAreTriedSevenTimes) {
    modem.add({.mishap = Mishap::silence});
    const FastClock fast(100);
    const uint32_t begin = clock::ticks();
    EXPECT_EQ(run(), -5);
    EXPECT_GE(clock::ticks() - begin, 7U * 6100 + 6 * 2000);
    expectSent(Lines(7, "ATZ"));
    EXPECT_EQ(ComGetModem_State(port), 101);
    Lines expected{kept};
    for (int i = 0; i < 7; ++i)
        for (const char* text : {" Sending Reset to Modem - String:ATZ|", "Did not get OK from RESET - Got:"})
            expected.emplace_back(text);
    expected.emplace_back("Failed to get response from RESET command for 5 tries - check modem");
    EXPECT_EQ(log.entries(), expected);

    EXPECT_EQ(ComSetModem_Next(port), -5); // looks for the answer once more
    EXPECT_EQ(log.entries().back(), expected.back());
    clock::setTestScale(1); // what has come is to be taken in time, also on a busy machine
    modem.clearFaults();
    ComPuts(port, "AT|");
    ASSERT_TRUE(eventually([] { return ComStatus(port) >= 2; }));
    EXPECT_EQ(ComSetModem_Next(port), 5);
    EXPECT_EQ(ComGetModem_State(port), 200);

    // A wrong answer counts as none; a long one is cut in the log.
    std::strcpy(open.record().initStr, "ATI3I3I3I3I3I3I3X9|");
    clock::setTestScale(6);
    EXPECT_EQ(steps(), -6);
    EXPECT_EQ(ComGetModem_State(port), 201);
    const std::string line = "\r\nbrisolt modem simulator\r\n";
    EXPECT_EQ(log.entries({"Did not get OK from INIT"}),
              Lines(7, "Did not get OK from INIT - Got:" + (line + line + line + line).substr(0, 99)));
}

// The modem passes its reset on to the far end; between two tries it hears the escape.
TEST_F(Initialisation, EndsACall) {
    const FastClock fast(pace);
    const simulated::Simulator far(simulated::ptyLine(), exchange,
                                   {.number = "200", .timeScale = pace, .stored = "E0S0=1"});
    Terminal terminal(far.path());
    ComPuts(port, "ATD200|");
    ASSERT_TRUE(modem.waitFor(simulated::Phase::online));
    terminal.until("CONNECT 33600\r\n");
    EXPECT_EQ(run({.init = 0, .compression = 0, .flow = 0, .errorControl = 0, .autoAnswer = 0}), 1);
    EXPECT_EQ(terminal.until("NO CARRIER"), "ATZ\r+++\r\nNO CARRIER");
    expectSent({"ATD200", "ATZ", "AT&K0", "ATS46=136", "AT&Q6S36=3S48=128", "ATS0=0"});
}

TEST_F(Initialisation, TheOtherCommandsAreSentThreeTimesAndLeft) {
    const FastClock fast(100);
    Lines expected;
    for (std::size_t i = 2; i < allCommands.size(); ++i)
        expected.insert(expected.end(), 3, allCommands[i]);
    for (const Mishap mishap : {Mishap::refusal, Mishap::silence}) {
        modem.clearFaults();
        modem.add({.mishap = mishap});
        ASSERT_EQ(start({.reset = 0, .init = 0}), 5);
        EXPECT_EQ(steps(), 1);
        EXPECT_EQ(ComGetModem_State(port), 100);
        expectSent(expected);
    }
    EXPECT_EQ(log.entries({"Did not get OK"}).size(), 2 * expected.size());
}

class InitialisationOfASilentModem : public Initialisation {
protected:
    InitialisationOfASilentModem() { modem.add({.mishap = Mishap::silence}); }
    /// Runs until something ends it, long before the first answer is given up, and next to idle until then.
    void expectEnded() {
        const auto begin = SteadyClock::now();
        EXPECT_LT(processorTimeOf(CLOCK_THREAD_CPUTIME_ID, [this] { EXPECT_EQ(run(), -1); }), 100ms);
        EXPECT_LT(SteadyClock::now() - begin, 2500ms);
    }
    template <class Action> void expectEndedBy(Action action) {
        auto end = std::async(std::launch::async, [action] {
            sleepHalfASecond();
            action();
        });
        expectEnded();
    }
};

TEST_F(InitialisationOfASilentModem, EndsByACancelHoweverItComesAndByTheClose) {
    ComCancel(port); // nothing runs: forgotten
    expectEndedBy([] { ComCancel(port); });
    expectSent({"ATZ"});

    // One that comes when the answer is about to be looked for.
    static std::atomic<int32_t> asked;
    open.record().statusFunc = +[](int32_t number) -> int32_t {
        if (ComGetModem_State(number) == 101 && ++asked == 1)
            ComCancel(number);
        return asked > 0 ? 2 : 0;
    };
    expectEnded();
    expectSent({"ATZ"});
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

    expectEndedBy([this] { open.close(); });
    EXPECT_EQ(ComSetModem_Next(port), -1);
    EXPECT_EQ(ComGetModem_State(port), -1);
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(run(), -1);
    const OpenPort again{port, modem.path()};
    EXPECT_EQ(ComGetModem_State(port), 100) << "a port starts afresh";
}

TEST_F(InitialisationOfASilentModem, LetsMessagesPassAndTheEscapeKeyDoesNotEndIt) {
    static std::atomic<int32_t> handled;
    const int32_t window =
        ComHostCreateWindow([](void*, int32_t, uint32_t, uintptr_t, intptr_t) { ++handled; }, nullptr);
    std::thread other([&, self = ComHostThreadId()] {
        EXPECT_TRUE(eventually([] { return ComGetModem_State(port) == 101; }));
        ComHostPostMessage(window, 0x400, 0, 0);
        ComHostPostChar(self, 27);
        EXPECT_TRUE(eventually([] { return handled == 1; }, 2s)); // at once, not when the answer is late
        modem.clearFaults();
        ComPuts(port, "AT|");
    });
    EXPECT_EQ(run(), 1);
    other.join();
    ComHostMessage message;
    EXPECT_EQ(ComHostGetMessage(&message, 0), 0) << "the escape key is handled";
    ComHostDestroyWindow(window);
}

class InitialisationStrings : public Initialisation {
protected:
    Request request(const std::string& name, int32_t keptStrings = 0) const {
        return {.database = path, .modem = name, .kept = keptStrings};
    }
    void write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
    /// The port's strings in the order of a line of the database.
    std::string strings() const {
        const PortRecord& now = open.record();
        std::string all;
        for (const char* text : {now.initStr, now.resetStr, now.compressionOnStr, now.compressionOffStr,
                                 now.flowControlOffStr, now.flowControlHdwrStr, now.flowControlSoftStr,
                                 now.errorControlOnStr, now.errorControlOffStr, now.errorControlForcedStr})
            all.append(all.empty() ? "" : "!").append(text);
        return all;
    }
    TempDir directory;
    std::string path = directory.file("modems.txt");
};

TEST_F(InitialisationStrings, AreThoseOfTheModemCutToTheirFields) {
    const std::string longInit(99, 'I'), longReset(60, 'R'), others = "!d2!o2!h2!s2!e2!f2!g2";
    write("other!i1!3!r1!c1!d1!o1!h1!s1!e1!f1!g1\r\nwanted!" + longInit + "!3!" + longReset + "!c2" + others +
          "\r\nshort!i3!3!r3!c3\r\n");
    ASSERT_EQ(start(request("wanted")), 5);
    EXPECT_EQ(log.entries({" Searching", "Modem Name", "Setting Reset"}),
              (Lines{" Searching through modem database:" + path + " for modem type:wanted",
                     "Modem Name Match: wanted", "Setting Reset_String=" + longReset}));
    EXPECT_EQ(strings(), longInit + "!" + longReset.substr(0, 31) + "!c2" + others);
    EXPECT_EQ(log.entries({"Setting Init"}).size(), 1U);

    // Those that are kept and those that the line lacks stay the port's.
    Request keepsInit = request("short");
    keepsInit.init |= 4;
    ASSERT_EQ(start(keepsInit), 5);
    EXPECT_EQ(strings(), longInit + "!r3!c3" + others);
    EXPECT_EQ(log.entries({"Setting Init"}).size(), 1U);
    Request keepsReset = request("other");
    keepsReset.reset |= 4;
    ASSERT_EQ(start(keepsReset), 5);
    EXPECT_EQ(strings(), "i1!r3!c1!d1!o1!h1!s1!e1!f1!g1");
    EXPECT_STREQ(open.record().setAAStr, "ATS0=1|");
}

TEST_F(InitialisationStrings, ProblemsWithTheDatabase) {
    write("a!i!3!r\r\nb!i!3!r\r\nc!i!3!r");
    char name[101], x[101];
    ASSERT_EQ(ComGetModem_Start(port, path.c_str(), name, x, x, x, x, x, x, x, x, x, x, x), 5);
    EXPECT_EQ(start(request("B\xE9")), -2);
    EXPECT_EQ(run(request("d")), -2);
    EXPECT_EQ(run(request(std::string(5000, 'n'))), -2);
    EXPECT_EQ(start(request("c")), 5); // the last line, without its end
    EXPECT_EQ(ComGetModem_Next(port, name, x, x, x, x, x, x, x, x, x, x, x), 5);
    EXPECT_STREQ(name, "b") << "a listing goes on beside it";
    ComGetModem_End(port);

    Request bad = request("a");
    bad.database = directory.file("none");
    EXPECT_EQ(start(bad), -1);
    EXPECT_EQ(run(bad), -2);
    bad.kept = 4;
    for (const std::string& file : {std::string(), std::string(260, 'p')}) {
        bad.database = file;
        EXPECT_EQ(start(bad), -1);
        EXPECT_EQ(run(bad), -1);
    }
    EXPECT_TRUE(modem.commands().empty());
}

} // namespace
} // namespace brisolt::test

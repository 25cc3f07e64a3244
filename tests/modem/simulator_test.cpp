// The simulated modem, as a program at its terminal sees it: command mode, and calls between modems.
#include <future>
#include <stdexcept>

#include "modem/simulator.h"
#include "support/peer_process.h"
#include "terminal.h"

using namespace brisolt::test;
using namespace simulated;

namespace {

const std::string ok = "\r\nOK\r\n", error = "\r\nERROR\r\n";

struct ModemCommands : testing::Test {
    Exchange exchange;
    Simulator modem{ptyLine(), exchange};
    Terminal terminal{modem.path()};

    /// Command lines and what the modem says to each behind its echo.
    void expect(const std::vector<std::pair<std::string, std::string>>& answers) {
        for (const auto& [line, answer] : answers)
            EXPECT_EQ(terminal.ask(line, answer.ends_with(error) ? "ERROR\r\n" : "OK\r\n"),
                      std::string(line).append("\r").append(answer));
    }
};

constexpr int fast = 20;

/// A modem and the program at it.
struct Station {
    Simulator modem;
    Terminal terminal{modem.path()};

    Station(Exchange& exchange, Options options) : modem(ptyLine(), exchange, scaled(std::move(options))) {}
    static Options scaled(Options options) {
        options.timeScale = fast;
        options.stored = "E0";
        return options;
    }
    /// The result of a command line that takes its time.
    std::string result(const std::string& line) {
        terminal.ask(line, "\r\n");
        const std::string text = terminal.until("\r\n");
        return text.substr(0, text.size() - 2);
    }
};

struct Calls : testing::Test {
    Exchange exchange;
    Station here{exchange, {.number = "100"}};
    Station there{exchange, {.number = "200", .rate = 14400}};

    void connect() {
        EXPECT_EQ(there.terminal.ask("ATS0=1"), "\r\nOK\r\n");
        EXPECT_EQ(here.result("ATDT200"), "CONNECT 14400");
        there.terminal.until("CONNECT 14400\r\n");
    }
    void expectEnd() {
        here.terminal.until("NO CARRIER\r\n");
        there.terminal.until("NO CARRIER\r\n");
    }
    void escape() {
        std::this_thread::sleep_for(1500ms / fast);
        here.terminal.send("+++");
        here.terminal.until("OK\r\n");
    }
};

} // namespace

TEST_F(ModemCommands, TakesSeveralOnALineInAnyCaseAndRepeatsThem) {
    const std::string values = "\r\n030\r\n\r\n000\r\n" + ok;
    expect({{"AT", ok}, {"at s7 = 30 x3 &c1 S7? S0?", values}});
    terminal.send("A/");
    EXPECT_EQ(terminal.until("OK\r\n"), "A/" + values);
    EXPECT_EQ(modem.commands().at(1), "ATS7=30X3&C1S7?S0?");
    EXPECT_TRUE(terminal.ask("ATX9\b\b\b\b\bS0=3\b2?").ends_with("\r\n002\r\n" + ok)) << "the AT stays";
    expect({{"+++aAtS8=5?", "\r\n005\r\n" + ok}, {"ATS7=20X9S7=60", error}, {"ATS7?", "\r\n020\r\n" + ok}});
}

TEST_F(ModemCommands, AnswersAsItIsToldWithinItsLimits) {
    for (const char* line : {"ATS256?", "ATS0=256", "ATS99999999999=1", "AT&C2", "AT&", "ATJ", "AT+NONE=1",
                             "AT+NONE?", "AT&Z4=1", "AT&Y3", "AT&W2", "ATZ2", "AT+FCLASS=1"})
        expect({{line, error}});
    std::string longest = "AT";
    while (longest.size() < 2 + 254)
        longest += "E1";
    expect({{longest + " ", ok}, {longest + "  ", error}, {"AT", ok}});
    expect({{"AT+FCLASS?", "\r\n0\r\n" + ok},
            {"AT+FCLASS=0;+FCLASS=?", "\r\n0\r\n" + ok},
            {"AT+IFC=1,1;+IFC?", "\r\n+IFC: 1,1\r\n" + ok},
            {"AT+IFC=;+IFC?;+IFC=?", "\r\n+IFC: 2,2\r\n\r\n+IFC: (0-3),(0-2)\r\n" + ok}});
    terminal.ask("ATE0");
    EXPECT_EQ(terminal.ask("ATV0\rATS7?\rATQ1\rAT\rATQ0V1"), "0\r050\r\n0\r" + ok);
}

TEST_F(ModemCommands, KeepsTwoProfiles) {
    expect({{"ATS7=11&K4&W S7=12E0&W1", ok}});
    EXPECT_EQ(terminal.ask("ATZ S7=13"), ok) << "what stands behind Z is not done";
    expect({{"ATS7?", "\r\n011\r\n" + ok}});
    terminal.ask("ATZ1");
    EXPECT_EQ(terminal.ask("ATS7?E1"), "\r\n012\r\n" + ok);
    terminal.ask("AT&D3&Y1+IFC=1,1");
    EXPECT_NE(terminal.ask("AT&V").find("+IFC=1,1 "), std::string::npos);
    terminal.close();
    ASSERT_TRUE(eventually([this] { return !modem.status().dtr; }));
    Terminal next(modem.path());
    EXPECT_EQ(next.ask("ATS7?"), "\r\n012\r\n" + ok) << "the one that &Y has chosen";
    EXPECT_EQ(next.ask("AT&FS7?"), "\r\n050\r\n" + ok);

    const Simulator other(ptyLine(), exchange, {.stored = "E0 S0=3"});
    Terminal there(other.path());
    EXPECT_EQ(there.ask("ATS0?"), "\r\n003\r\n" + ok);
    EXPECT_THROW(Simulator(ptyLine(), exchange, {.stored = "ATD5"}), std::runtime_error);
}

TEST_F(ModemCommands, GoesWrongOnRequest) {
    modem.add({.mishap = Mishap::refusal, .text = "&k 3", .times = 2});
    modem.add({.mishap = Mishap::slowness, .text = "S0=", .delay = 300ms});
    expect({{"AT&K3", error}, {"AT&K3", error}, {"AT&K3", ok}});
    // What comes before the answer waits.
    EXPECT_EQ(terminal.ask("ATS0=1\rATS0?", "001\r\n\r\nOK\r\n"),
              "ATS0=1\r\r\nOK\r\nATS0?\r\r\n001\r\n\r\nOK\r\n");
    modem.setNoise(3);
    terminal.send("AT\r");
    EXPECT_EQ(terminal.read(12).size(), 12U) << "nine bytes and three of noise";
}

// Programs come and go; each finds the terminal as a serial port would be, and takes what it has begun along:
// the rest of a line, answers that nobody has read, a call.
TEST(ModemOnAPty, OutlivesItsPrograms) {
    Exchange exchange;
    exchange.set("5", Fate::ringsForEver);
    Simulator modem(ptyLine(), exchange);
    modem.add({.mishap = Mishap::slowness, .text = "S9=", .delay = 60s});
    const char* const lastWords[] = {"AT&V\rATS", "AT&V\r", "ATX3DT5\r", "ATS9=6DT5\r", "ATS9=6\rATDT5"};
    std::size_t lines = 0;
    for (int i = 0; i < 50; ++i) {
        const std::string last = lastWords[i % 5];
        {
            Terminal terminal(modem.path());
            if (i % 2 == 0) { // else it is gone as soon as it has come
                ASSERT_EQ(terminal.ask("ATE1"), "ATE1\r\r\nOK\r\n") << i;
                ++lines;
            }
            terminal.send(last);
        }
        lines += static_cast<std::size_t>(std::count(last.begin(), last.end(), '\r'));
        ASSERT_TRUE(eventually([&] {
            const Status now = modem.status();
            return modem.commands().size() == lines && !now.dtr && now.phase == Phase::idle;
        })) << i
            << ": " << nameOf(modem.status().phase);
    }
}

TEST_F(Calls, RingConnectCarryEveryByteAndEnd) {
    there.terminal.ask("ATS0=2");
    EXPECT_EQ(here.result("ATDT 2-00"), "CONNECT 14400") << "the rate of the slower";
    EXPECT_EQ(there.terminal.until("CONNECT 14400\r\n"), "\r\nRING\r\n\r\nRING\r\n\r\nCONNECT 14400\r\n");
    EXPECT_EQ(there.modem.status().other, "100");
    EXPECT_EQ(there.modem.status().rings, 2);

    // More than all that lies between, so both sides have to hold the sender off.
    const std::string text = pattern(2000000);
    auto sender = std::async(std::launch::async, [&] { here.terminal.send(text); });
    EXPECT_EQ(sender.wait_for(500ms), std::future_status::timeout) << "nobody reads yet";
    EXPECT_TRUE(there.terminal.read(text.size(), 100s) == text);
    sender.get();
    there.terminal.send(text.substr(0, 50000));
    EXPECT_EQ(here.terminal.read(50000), text.substr(0, 50000));

    // Only between silences, or it is data.
    std::this_thread::sleep_for(1500ms / fast);
    here.terminal.send("a+++");
    here.terminal.send("++++");
    std::this_thread::sleep_for(1500ms / fast);
    EXPECT_EQ(there.terminal.read(8), "a+++++++");
    EXPECT_EQ(here.modem.status().phase, Phase::online);
    escape();
    EXPECT_TRUE(here.modem.status().carrier) << "the call goes on";
    there.terminal.send("meanwhile");
    EXPECT_EQ(here.terminal.ask("ATS0?"), "\r\n000\r\n\r\nOK\r\n");
    EXPECT_EQ(here.result("ATO"), "CONNECT 14400");
    EXPECT_EQ(here.terminal.read(9), "meanwhile");
    escape();
    EXPECT_EQ(here.terminal.ask("ATH"), "\r\nOK\r\n");
    EXPECT_EQ(there.terminal.until("NO CARRIER\r\n"), "++++++\r\nNO CARRIER\r\n");
    EXPECT_FALSE(there.modem.status().carrier);
    EXPECT_EQ(here.result("ATO"), "NO CARRIER");
}

TEST_F(Calls, FailAsTheXLevelHears) {
    EXPECT_THROW(Simulator(ptyLine(), exchange, {.number = "100"}), std::runtime_error);
    for (int i = 0; i < 2; ++i) // a number can be had again
        Simulator(ptyLine(), exchange, {.number = "12#"});
    exchange.set("1", Fate::busy);
    exchange.set("2", Fate::ringsForEver);
    exchange.set("3", Fate::noDialtone);
    there.terminal.ask("ATS0=1");
    Station unplugged(exchange, {.dialtone = false});
    const std::tuple<Station&, const char*, const char*> cases[] = {
        {there, "ATX2S7=2D1", "NO CARRIER"},
        {there, "ATX4D2", "NO CARRIER"},
        {there, "ATX4D2@", "NO ANSWER"},
        {there, "ATX2D3", "NO DIALTONE"},
        {there, "ATX3D3", "NO CARRIER"},
        {there, "ATX0DW3", "NO DIALTONE"},
        {unplugged, "ATX3S7=1DT100", "NO CARRIER"},
        {unplugged, "ATX4DT100", "NO DIALTONE"},
        {here, "ATX3D1", "BUSY"},
        {here, "ATX4D100", "BUSY"},
        {here, "ATX4DT9,!9", "NO CARRIER"},
        {here, "ATX0DP200", "CONNECT"},
    };
    // The first two give up soon. The last has all the time that an answer may need.
    for (const auto& [station, line, result] : cases)
        EXPECT_EQ(station.result(line), result) << line;
}

TEST_F(Calls, AKeyEndsTheAttemptButForTheLineFeedOfTheCommand) {
    here.terminal.send("ATDT200\r\n");
    there.terminal.until("RING\r\n\r\nRING\r\n");
    EXPECT_EQ(here.modem.status().phase, Phase::calling);
    here.terminal.send("x");
    EXPECT_EQ(here.terminal.until("NO CARRIER\r\n"), "\r\nNO CARRIER\r\n");
    ASSERT_TRUE(here.modem.waitFor(Phase::idle));
    EXPECT_TRUE(eventually([this] { return there.modem.status().rings == 0; }));
    EXPECT_EQ(there.result("ATA"), "NO CARRIER") << "nobody calls any more";
}

TEST_F(Calls, EndWhenTheProgramLeaves) {
    connect();
    here.terminal.close();
    there.terminal.until("NO CARRIER\r\n");
    ASSERT_TRUE(here.modem.waitFor(Phase::idle));
    // Without a program a modem rings and does not answer, and what it would have said is not kept.
    there.terminal.send("ATD100\r");
    EXPECT_TRUE(eventually([this] { return here.modem.status().rings >= 2; }));
    EXPECT_EQ(there.modem.status().phase, Phase::calling);
    there.terminal.send(" ");
    there.terminal.until("NO CARRIER\r\n");
    EXPECT_EQ(Terminal(here.modem.path()).ask("AT"), "\r\nOK\r\n");
}

// Where there is no DTR line the speed 0 is how a program hangs up. It does not outlast its program.
TEST_F(Calls, EndBySpeedZero) {
    connect();
    PeerProcess("/bin/stty", {"-F", here.modem.path(), "0"}).wait();
    expectEnd();
    here.terminal.close();
    EXPECT_TRUE(eventually([this] {
        const Terminal next(here.modem.path());
        return eventually([this] { return here.modem.status().dtr; }, 500ms);
    }));
}

TEST_F(Calls, AreCutOnRequestAndObeyXonAndXoff) {
    here.modem.dropAfterBytes(5000);
    connect();
    there.terminal.send(pattern(5000));
    EXPECT_EQ(here.terminal.read(1000), pattern(1000));
    expectEnd();

    here.terminal.ask("AT&K4");
    connect();
    here.terminal.send("go\x13");
    EXPECT_EQ(there.terminal.read(2), "go");
    there.terminal.send("held");
    EXPECT_EQ(here.terminal.read(1, 500ms), "");
    here.terminal.send("\x11on");
    EXPECT_EQ(here.terminal.read(4), "held");
    EXPECT_EQ(there.terminal.read(2), "on") << "they are not data";
}

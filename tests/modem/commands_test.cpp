// Command mode, as a program at the terminal sees it.
#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>

#include "modem/simulator.h"
#include "terminal.h"

using brisolt::test::Terminal;
using namespace simulated;
using namespace std::chrono_literals;

namespace {

struct ModemCommands : testing::Test {
    Exchange exchange;
    Simulator modem{ptyLine(), exchange};
    Terminal terminal{modem.path()};

    std::string answer(const std::string& line, const std::string& last = "OK\r\n") {
        terminal.send(line + "\r");
        const std::string all = terminal.until(last);
        EXPECT_TRUE(all.starts_with(line + "\r")) << all;
        return all.substr(std::min(all.size(), line.size() + 1));
    }
};

} // namespace

TEST_F(ModemCommands, TakesSeveralOnALineInAnyCaseAndRepeatsThem) {
    EXPECT_EQ(answer("AT"), "\r\nOK\r\n");
    EXPECT_EQ(answer("at s7 = 30 x3 &c1 S7? S0?"), "\r\n030\r\n\r\n000\r\n\r\nOK\r\n");
    terminal.send("A/");
    EXPECT_EQ(terminal.until("OK\r\n"), "A/\r\n030\r\n\r\n000\r\n\r\nOK\r\n");
    EXPECT_EQ(answer("rubbish +++aAtS8=5?"), "\r\n005\r\n\r\nOK\r\n") << "what is in front does not count";
    EXPECT_EQ(modem.commands().at(1), "ATS7=30X3&C1S7?S0?");
}

TEST_F(ModemCommands, StopsAtTheFirstErrorAndHasLimits) {
    EXPECT_EQ(answer("ATS7=20X9S7=60", "ERROR\r\n"), "\r\nERROR\r\n");
    EXPECT_EQ(answer("ATS7?"), "\r\n020\r\n\r\nOK\r\n");
    for (const char* line :
         {"ATS256?", "ATS0=256", "ATS99999999999=1", "AT&C2", "AT&", "ATJ", "AT+NONE=1", "AT&Z4=1"})
        EXPECT_EQ(answer(line, "ERROR\r\n"), "\r\nERROR\r\n") << line;

    std::string longest = "AT";
    while (longest.size() < 2 + 254)
        longest += "E1";
    EXPECT_EQ(answer(longest + " "), "\r\nOK\r\n");
    EXPECT_EQ(answer(longest + "  ", "ERROR\r\n"), "\r\nERROR\r\n");
    EXPECT_EQ(answer("AT"), "\r\nOK\r\n") << "and it is forgotten";

    terminal.send("ATX9\b\b\b\b\bS0=3\b2?\r");
    EXPECT_TRUE(terminal.until("OK\r\n").ends_with("\r\n002\r\n\r\nOK\r\n")) << "the AT stays";
}

TEST_F(ModemCommands, AnswersAsItIsTold) {
    answer("ATE0");
    terminal.send("ATV0\r");
    EXPECT_EQ(terminal.untilQuiet(), "0\r");
    terminal.send("ATS7?\r");
    EXPECT_EQ(terminal.untilQuiet(), "050\r\n0\r");
    terminal.send("ATQ1\rAT\r");
    EXPECT_EQ(terminal.untilQuiet(), "");
}

TEST_F(ModemCommands, KeepsProfiles) {
    answer("ATS7=11&K4&W S7=12E0");
    EXPECT_EQ(terminal.ask("ATZ S7=13"), "\r\nOK\r\n") << "what stands behind Z is not done";
    EXPECT_EQ(answer("ATS7?"), "\r\n011\r\n\r\nOK\r\n");
    EXPECT_NE(answer("AT+IFC=2,2;&V").find("+IFC=2,2 "), std::string::npos);
    EXPECT_EQ(answer("AT&FS7?+IFC?"), "\r\n050\r\n\r\n+IFC: \r\n\r\nOK\r\n");

    const Simulator other(ptyLine(), exchange, {.stored = "E0 S0=3"});
    Terminal there(other.path());
    EXPECT_EQ(there.ask("ATS0?"), "\r\n003\r\n\r\nOK\r\n");
    EXPECT_THROW(Simulator(ptyLine(), exchange, {.stored = "ATD5"}), std::runtime_error);
}

TEST_F(ModemCommands, GoesWrongOnRequest) {
    modem.add({.mishap = Mishap::silence, .text = "z", .times = 2});
    modem.add({.mishap = Mishap::refusal, .text = "&K 3"});
    modem.add({.mishap = Mishap::slowness, .text = "S0=", .delay = 300ms});
    for (int i = 0; i < 2; ++i) {
        terminal.send("ATZ\r");
        EXPECT_EQ(terminal.untilQuiet(), "ATZ\r");
    }
    EXPECT_EQ(answer("ATZ"), "\r\nOK\r\n");
    EXPECT_EQ(answer("AT&K3", "ERROR\r\n"), "\r\nERROR\r\n");
    terminal.send("ATS0=1\rATS0?\r"); // what comes before the answer waits
    EXPECT_EQ(terminal.until("001\r\n\r\nOK\r\n"), "ATS0=1\r\r\nOK\r\nATS0?\r\r\n001\r\n\r\nOK\r\n");
    modem.clearFaults();
    EXPECT_EQ(answer("AT&K3"), "\r\nOK\r\n");
    modem.setNoise(3);
    terminal.send("AT\r");
    EXPECT_EQ(terminal.read(12).size(), 12U) << "nine bytes and three of noise";
}

// Programs come and go; each finds the terminal as a serial port would be.
TEST(ModemOnAPty, OutlivesItsPrograms) {
    Exchange exchange;
    const Simulator modem(ptyLine(), exchange);
    for (int i = 0; i < 60; ++i) {
        Terminal terminal(modem.path());
        ASSERT_EQ(terminal.ask("ATE1"), "ATE1\r\r\nOK\r\n") << i;
        // Gone in the middle of a line, or before the answer.
        terminal.send(i % 2 == 0 ? "AT&V\rATS" : "AT&V\r");
        terminal.close();
        for (int tries = 0; tries < 5000 && modem.status().dtr; ++tries)
            usleep(1000);
    }
    EXPECT_FALSE(modem.status().dtr);
}

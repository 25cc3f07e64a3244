// Calls between modems inside the process.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "modem/simulator.h"
#include "terminal.h"

using namespace brisolt::test;
using namespace simulated;

namespace {

constexpr int fast = 20;

/// A modem and the program at it.
struct Station {
    Simulator modem;
    Terminal terminal;

    Station(Exchange& exchange, Options options)
        : modem(ptyLine(), exchange, scaled(std::move(options))), terminal(modem.path()) {
        terminal.ask("ATE0");
    }
    static Options scaled(Options options) {
        if (options.timeScale == 1)
            options.timeScale = fast;
        return options;
    }
    /// The result of a command line that takes its time.
    std::string result(const std::string& line) {
        terminal.send(line + "\r");
        terminal.until("\r\n");
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
    void escape() {
        std::this_thread::sleep_for(1500ms / fast);
        here.terminal.send("+++");
        here.terminal.until("OK\r\n");
    }
};

} // namespace

TEST_F(Calls, RingConnectCarryEveryByteAndEnd) {
    there.terminal.ask("ATS0=2");
    EXPECT_EQ(here.result("ATDT 2-00"), "CONNECT 14400") << "the rate of the slower";
    EXPECT_EQ(there.terminal.until("CONNECT 14400\r\n"), "\r\nRING\r\n\r\nRING\r\n\r\nCONNECT 14400\r\n");
    EXPECT_EQ(there.modem.status().other, "100");
    EXPECT_EQ(there.modem.status().rings, 2);
    EXPECT_TRUE(here.modem.status().carrier);

    // More than all that lies between, so both sides have to hold the sender off.
    const std::string text = pattern(2000000);
    std::thread sender([&] { here.terminal.send(text); });
    std::this_thread::sleep_for(200ms);
    EXPECT_FALSE(here.terminal.hasRoom()) << "nobody reads yet";
    const std::string got = there.terminal.read(text.size(), 100s);
    ASSERT_EQ(got.size(), text.size());
    EXPECT_TRUE(got == text);
    sender.join();
    there.terminal.send(text.substr(0, 50000));
    EXPECT_EQ(here.terminal.read(50000), text.substr(0, 50000));

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

TEST_F(Calls, EscapeOnlyBetweenSilences) {
    connect();
    std::this_thread::sleep_for(1500ms / fast);
    here.terminal.send("a+++");
    here.terminal.send("++++");
    std::this_thread::sleep_for(3000ms / fast);
    EXPECT_EQ(here.modem.status().phase, Phase::online);
    EXPECT_EQ(there.terminal.read(8), "a+++++++");
}

TEST_F(Calls, FailAsTheXLevelHears) {
    exchange.set("1", Fate::busy);
    exchange.set("2", Fate::ringsForEver);
    exchange.set("3", Fate::noDialtone);
    here.terminal.ask("ATS7=2");
    const struct {
        const char* line;
        const char* result;
    } cases[] = {
        {"ATX3D1", "BUSY"},         {"ATX2D1", "NO CARRIER"},     {"ATX4D2", "NO CARRIER"},
        {"ATX4D2@", "NO ANSWER"},   {"ATX2D3", "NO DIALTONE"},    {"ATX3D3", "NO CARRIER"},
        {"ATX0DW3", "NO DIALTONE"}, {"ATX4DT9,!9", "NO CARRIER"}, {"ATX4D100", "BUSY"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(here.result(one.line), one.result) << one.line;

    there.terminal.ask("ATS0=1");
    EXPECT_EQ(here.result("ATX0DP200"), "CONNECT");

    Station unplugged(exchange, {.dialtone = false});
    EXPECT_EQ(unplugged.result("ATDT100"), "NO DIALTONE");
    EXPECT_EQ(unplugged.result("ATX3S7=1DT100"), "NO CARRIER") << "and not BUSY";
}

TEST_F(Calls, AKeyEndsTheAttemptButForTheLineFeedOfTheCommand) {
    here.terminal.send("ATDT200\r\n");
    there.terminal.until("RING\r\n\r\nRING\r\n");
    EXPECT_EQ(there.terminal.ask("ATS1?").substr(0, 2), "\r\n");
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
    Terminal next(here.modem.path());
    EXPECT_EQ(next.ask("ATE0"), "\r\nOK\r\n");
}

TEST_F(Calls, AreCutOnRequest) {
    here.modem.dropAfterBytes(5000);
    connect();
    there.terminal.send(pattern(5000));
    const std::string got = here.terminal.until("NO CARRIER\r\n");
    EXPECT_EQ(got.substr(0, 1000), pattern(5000).substr(0, 1000));
    there.terminal.until("NO CARRIER\r\n");

    connect();
    there.modem.dropNow();
    here.terminal.until("NO CARRIER\r\n");
    there.terminal.until("NO CARRIER\r\n");
    connect();
}

TEST_F(Calls, ObeyXonAndXoff) {
    here.terminal.ask("AT&K4");
    connect();
    here.terminal.send("go\x13");
    EXPECT_EQ(there.terminal.read(2), "go");
    there.terminal.send("held");
    EXPECT_EQ(here.terminal.untilQuiet(), "");
    here.terminal.send("\x11on");
    EXPECT_EQ(here.terminal.read(4), "held");
    EXPECT_EQ(there.terminal.read(2), "on") << "they are not data";
}

TEST(Exchange, GivesANumberOnce) {
    Exchange exchange;
    const Simulator first(ptyLine(), exchange, {.number = "12#"});
    EXPECT_THROW(Simulator(ptyLine(), exchange, {.number = "12#"}), std::runtime_error);
    EXPECT_THROW(Simulator(ptyLine(), exchange, {.number = "1/2"}), std::runtime_error);
    { const Simulator second(ptyLine(), exchange, {.number = "13"}); }
    const Simulator again(ptyLine(), exchange, {.number = "13"});
}

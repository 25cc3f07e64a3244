// The modem at the end of a null modem, driven by the library's own modem functions.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <brisolt.h>
#include <brisolt_host.h>

#include "modem/simulator.h"
#include "platform/clock.h"
#include "terminal.h"

using brisolt::test::Terminal;
using namespace simulated;
using namespace std::chrono_literals;

namespace {

constexpr int fast = 10;
constexpr int32_t port = 1;

bool soon(const std::function<bool()>& condition) {
    for (int tries = 0; tries < 10000 && !condition(); ++tries)
        std::this_thread::sleep_for(1ms);
    return condition();
}

/// A port at a modem that another modem, on a pty, can be called by.
struct NullModemLine : testing::Test {
    Exchange exchange;
    Simulator modem{nullModemLine("modem-line"), exchange, {.number = "100", .timeScale = fast}};
    Simulator far{ptyLine(), exchange, {.number = "200", .timeScale = fast, .stored = "E0S0=1"}};
    Terminal terminal{far.path()};

    void SetUp() override {
        brisolt::clock::setTestScale(fast);
        ComHostMapDevice(port, modem.path().c_str());
        open();
    }
    void TearDown() override {
        ComClose(port);
        brisolt::clock::setTestScale(1);
    }
    static void open() {
        ASSERT_EQ(ComOpen("modem", port, 9600, 8, 1, 1, 8192, 8192), port);
        ComSetBackgroundTimeout(port, 0);
    }
    static std::string until(const std::string& text) {
        std::string got;
        soon([&] {
            for (int32_t byte = 0; !got.ends_with(text) && (byte = ComGetc(port)) >= 0;)
                got += static_cast<char>(byte);
            return got.ends_with(text);
        });
        EXPECT_TRUE(got.ends_with(text)) << got;
        return got;
    }
    static void ask(const std::string& line) {
        ComPuts(port, (line + "|").c_str());
        until("OK\r\n");
    }
    void connect() {
        EXPECT_EQ(ComDial(port, "200"), 1);
        until("CONNECT 33600\r\n");
        terminal.until("CONNECT 33600\r\n");
    }
};

} // namespace

TEST_F(NullModemLine, ObeysDtr) {
    connect();
    ComDTR(port);
    EXPECT_TRUE(soon([] { return ComCarrier(port) == 0; }));
    EXPECT_EQ(modem.status().phase, Phase::idle);
    terminal.until("NO CARRIER\r\n");
    ask("AT");

    ask("AT&D1");
    connect();
    ComDTR(port);
    until("OK\r\n");
    EXPECT_EQ(modem.status().phase, Phase::escaped);
    ComPuts(port, "AT&D0O|");
    until("CONNECT 33600\r\n");
    ComDTR(port);
    EXPECT_EQ(modem.status().phase, Phase::online);
    EXPECT_EQ(ComCarrier(port), 1);
    ComClose(port);
    open();
    ComPuts(port, "~~+++~~ATH&C0|");
    until("ATH&C0\r\r\nOK\r\n");
    EXPECT_EQ(ComCarrier(port), 1) << "shown for ever";
}

TEST_F(NullModemLine, FindsAnyRateAndLosesAProgramThatCloses) {
    ask("AT");
    ComSetBaud(port, 300);
    ask("AT");
    ComSetBaud(port, 115200);
    ComSetParms(port, 3, 7, 2);
    ask("AT&FE0");
    EXPECT_EQ(ComGetLineError(port), 0);
    connect();
    ComClose(port);
    EXPECT_TRUE(modem.waitFor(Phase::idle));
    terminal.until("NO CARRIER\r\n");
    terminal.send("ATD100\r");
    EXPECT_TRUE(soon([this] { return modem.status().rings > 1; }));
    terminal.send("x");
    terminal.until("NO CARRIER\r\n");
    EXPECT_TRUE(soon([this] { return !modem.status().ringing; }));
    open();
    ask("ATE1");
    ComPuts(port, "AT|");
    EXPECT_EQ(until("OK\r\n"), "AT\r\r\nOK\r\n") << "nothing is left from before";
}

// More than the queues between hold, both ways at once, with the program's end held off now and then.
TEST_F(NullModemLine, CarriesEveryByte) {
    connect();
    ComSetFlow(port, 0);
    ComHostSetLossless(port, 1);
    std::string text;
    for (int i = 0; i < 300000; ++i)
        text += static_cast<char>(i * 11 / 7);
    std::string got;
    std::thread sender([&] { terminal.send(text); });
    std::string back;
    std::thread receiver([&] { back = terminal.read(text.size(), 60s); });
    std::size_t sent = 0;
    std::string copy = text;
    EXPECT_TRUE(soon([&] {
        std::array<char, 3000> block{};
        const int32_t count = ComRead(port, block.data(), static_cast<int32_t>(block.size()));
        got.append(block.data(), static_cast<std::size_t>(std::max(count, 0)));
        const auto part = static_cast<int32_t>(std::min<std::size_t>(copy.size() - sent, 2000));
        sent += static_cast<std::size_t>(std::max(ComWrite(port, copy.data() + sent, part), 0));
        return got.size() >= text.size() && sent == text.size();
    }));
    sender.join();
    receiver.join();
    EXPECT_EQ(got, text);
    EXPECT_EQ(back, text);
}

// The modem at the end of a null modem, driven by the library's own modem functions.
#include <memory>
#include <string>
#include <thread>

#include "modem/simulator.h"
#include "modem/terminal.h"
#include "stream/open_port.h"

using namespace simulated;

namespace brisolt::test {
namespace {

constexpr int pace = 10;
constexpr int32_t port = 1;

/// A port at a modem that another modem, on a pty, can be called by.
struct NullModemLine : testing::Test {
    Exchange exchange;
    Simulator modem{nullModemLine("modem-line"), exchange, {.number = "100", .timeScale = pace}};
    Simulator far{ptyLine(), exchange, {.number = "200", .timeScale = pace, .stored = "E0S0=1"}};
    Terminal terminal{far.path()};
    FastClock fast{pace};
    std::unique_ptr<OpenPort> opened;

    void SetUp() override { open(); }
    void open() {
        opened.reset();
        opened =
            std::make_unique<OpenPort>(port, modem.path(), OpenPort::Shape{.rxSize = 8192, .txSize = 8192});
        ComSetBackgroundTimeout(port, 0);
    }
    static std::string until(const std::string& text) { return untilOnPort(port, text); }
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

TEST_F(NullModemLine, ObeysDtr) {
    connect();
    ComDTR(port);
    EXPECT_TRUE(eventually([] { return ComCarrier(port) == 0; }));
    EXPECT_EQ(modem.status().phase, Phase::idle);
    terminal.until("NO CARRIER\r\n");
    ask("AT");

    ask("AT&D1");
    connect();
    ComDTR(port);
    until("OK\r\n");
    EXPECT_EQ(modem.status().phase, Phase::escaped);
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
    opened.reset();
    EXPECT_TRUE(modem.waitFor(Phase::idle));
    terminal.until("NO CARRIER\r\n");
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
    std::string text = pattern(300000);
    std::string got, back;
    std::thread sender([&] { terminal.send(text); });
    std::thread receiver([&] { back = terminal.read(text.size(), 60s); });
    std::size_t sent = 0;
    EXPECT_TRUE(eventually([&] {
        got += readUpTo(port, 3000);
        const auto part = static_cast<int32_t>(std::min<std::size_t>(text.size() - sent, 2000));
        sent += static_cast<std::size_t>(std::max(ComWrite(port, text.data() + sent, part), 0));
        return got.size() >= text.size() && sent == text.size();
    }));
    sender.join();
    receiver.join();
    EXPECT_EQ(got, text);
    EXPECT_EQ(back, text);
}

} // namespace
} // namespace brisolt::test

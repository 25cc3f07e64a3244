// The single modem commands at a simulated modem: on a null modem, where carrier and ring are lines, and on a
// pseudo terminal, which has none. A bare line shows what is sent byte for byte.
#include <cstring>
#include <future>

#include "modem/simulator.h"
#include "modem/terminal.h"

namespace brisolt::test {
namespace {

using simulated::Phase;
using Lines = std::vector<std::string>;

constexpr int32_t port = 21;
constexpr int pace = 10; ///< so fast runs our time and the modems'

/// A modem, the port at it, and another modem (200) that answers, with a program of its own.
class AtAModem : public testing::Test {
protected:
    explicit AtAModem(std::unique_ptr<simulated::Line> line)
        : modem(std::move(line), exchange, {.number = "100", .timeScale = pace}) {
        exchange.set("5", simulated::Fate::ringsForEver);
    }
    /// All that comes up to and with that text.
    static std::string until(const std::string& text) {
        std::string got;
        EXPECT_TRUE(eventually([&] {
            for (int32_t byte = 0; !got.ends_with(text) && (byte = ComGetc(port)) >= 0;)
                got += static_cast<char>(byte);
            return got.ends_with(text);
        })) << got;
        return got;
    }
    static std::string ask(const std::string& line) {
        ComPuts(port, (line + "|").c_str());
        return until("OK\r\n");
    }
    void connect() {
        EXPECT_EQ(ComDial(port, "200"), 1);
        until("CONNECT 33600\r\n");
        terminal.until("CONNECT 33600\r\n");
    }
    FastClock fast{pace};
    simulated::Exchange exchange;
    simulated::Simulator modem;
    simulated::Simulator far{
        simulated::ptyLine(), exchange, {.number = "200", .timeScale = pace, .stored = "E0S0=1"}};
    Terminal terminal{far.path()};
    OpenPort open{port, modem.path()};
};

struct OnANullModem : AtAModem {
    OnANullModem() : AtAModem(simulated::nullModemLine("commands")) {}
};
struct OnAPty : AtAModem {
    OnAPty() : AtAModem(simulated::ptyLine()) {}
};

TEST_F(OnANullModem, AWholeCall) {
    EXPECT_EQ(ComModemInit(port), 1);
    until("OK\r\n");
    ask("ATS12=250");
    EXPECT_EQ(ComCarrier(port), 0);
    connect();
    EXPECT_EQ(ComCarrier(port), 1);
    EXPECT_EQ(ComCarrierTx(port), 1);
    ComPuts(port, "hello");
    terminal.until("hello");
    terminal.send("yes?");
    until("yes?");

    far.dropNow();
    terminal.until("NO CARRIER\r\n");
    EXPECT_TRUE(eventually([] { return ComCarrier(port) == 0; }));
    EXPECT_EQ(ComCarrierTx(port), 1) << "the latch is no live line";
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_EQ(ComCarrierTx(port), 0);

    connect();
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_EQ(ComCarrier(port), 1) << "a modem online takes a bare ATH0 for data";
    // A guard time of half a second of ours, and pauses as much longer, so that on a busy machine the three
    // characters are neither pulled apart nor pushed to others.
    std::strcpy(open.record().discStr, "~~~~~~~~~~+++~~~~~~~~~~ATH0|");
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_GE(clock::ticks() - start, 21000U) << "its pauses and a second behind them";
    EXPECT_TRUE(modem.waitFor(Phase::idle));
    EXPECT_EQ(ComCarrier(port), 0);
    EXPECT_EQ(modem.commands(), (Lines{"AT&F&C1&D2", "ATS12=250", "ATDT200", "ATH0", "ATDT200", "ATH0"}));
}

TEST_F(OnANullModem, RingsAndAnswers) {
    EXPECT_EQ(ComRing(port), 0);
    terminal.send("ATD100\r");
    EXPECT_TRUE(eventually([] { return ComRing(port) == 1; }));
    EXPECT_TRUE(eventually([] { return ComRing(port) == 0; })) << "between two bursts";
    until("RING\r\n");
    EXPECT_EQ(ComSetAns(port, 2), 1);
    until("CONNECT 33600\r\n");
    EXPECT_EQ(ComRing(port), 0);
    EXPECT_EQ(ComCarrier(port), 1);
    EXPECT_EQ(ComCarrierTx(port), 0) << "nobody dialled here";
}

TEST_F(OnANullModem, TheModemFindsAnyRateLosesAProgramThatClosesAndObeysDtr) {
    for (const int32_t baud : {300, 115200}) {
        ComSetBaud(port, baud);
        ask("ATE0");
    }
    ComSetParms(port, 3, 7, 2);
    ask("AT");
    EXPECT_EQ(ComGetLineError(port), 0);
    connect();
    open.close();
    EXPECT_TRUE(modem.waitFor(Phase::idle));
    terminal.until("NO CARRIER\r\n");
    const OpenPort again{port, modem.path()};
    EXPECT_EQ(ask("AT"), "\r\nOK\r\n") << "nothing is left from before";

    connect();
    ComClearDTR(port);
    terminal.until("NO CARRIER\r\n");
    EXPECT_TRUE(eventually([] { return ComCarrier(port) == 0; }));
    ComSetDTR(port);
    ask("ATE0&D1");
    connect();
    ComClearDTR(port);
    until("OK\r\n");
    EXPECT_EQ(modem.status().phase, Phase::escaped);
}

// More than the queues between hold, both ways at once, with the program's end held off now and then.
TEST_F(OnANullModem, EveryByteIsCarried) {
    ask("ATE0");
    connect();
    ComSetFlow(port, 0);
    ComHostSetLossless(port, 1);
    ComSetBackgroundTimeout(port, 0);
    const std::string text = pattern(300000);
    std::string got;
    auto sender = std::async(std::launch::async, [&] { terminal.send(text); });
    auto receiver = std::async(std::launch::async, [&] { return terminal.read(text.size(), 60s); });
    std::size_t sent = 0;
    EXPECT_TRUE(eventually([&] {
        got += readUpTo(port, 1500);
        sent += static_cast<std::size_t>(std::max(send(port, text.substr(sent, 1000)), 0));
        return got.size() >= text.size() && sent == text.size();
    }));
    EXPECT_TRUE(got == text);
    EXPECT_TRUE(receiver.get() == text);
}

TEST_F(OnAPty, EachSendsItsString) {
    for (auto* call :
         {ComReset, ComModemInit, ComModemSetCompression_ON, ComModemSetCompression_OFF,
          ComModemSetFlowControl_OFF, ComModemSetFlowControl_HDWR, ComModemSetFlowControl_SOFT,
          ComModemSetErrorControl_ON, ComModemSetErrorControl_OFF, ComModemSetErrorControl_FORCED, ComDisc}) {
        EXPECT_EQ(call(port), 1);
        until("\r\nOK\r\n");
    }
    for (const int32_t rings : {2, 0}) {
        EXPECT_EQ(ComSetAns(port, rings), 1);
        until("\r\nOK\r\n");
    }
    EXPECT_EQ(modem.commands(),
              (Lines{"ATZ", "AT&F&C1&D2", "ATS46=138", "ATS46=136", "AT&K0", "AT&K3", "AT&K4",
                     "AT&Q5S36=7S48=7", "AT&Q6S36=3S48=128", "AT&Q5S36=4S48=7", "ATH0", "ATS0=1", "ATS0=0"}));
}

TEST_F(OnAPty, AConnectionThatDoesNotShowEndsTheDialWithItsTime) {
    open.record().dialTimeout = 10;
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComDial(port, "200"), -1);
    EXPECT_GE(clock::ticks() - start, 10010U);
    EXPECT_TRUE(modem.waitFor(Phase::online)) << "it is connected all the same";
    EXPECT_EQ(ComCarrier(port), -1);
    EXPECT_EQ(ComCarrierTx(port), 0);
    EXPECT_EQ(ComRing(port), 0) << "nor does a ring show";
}

class OnABareLine : public testing::Test {
protected:
    Pty far;
    OpenPort open{port, far.slavePath()};
};

TEST_F(OnABareLine, StringsGoOutByteForByte) {
    open.record().dialTimeout = 0;
    ComCancel(port); // nothing runs: forgotten
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComDial(port, "9~5|5~"), 1) << "without patience it returns when it has sent";
    EXPECT_GE(clock::ticks() - start, 2U * 251 + 2000);
    EXPECT_EQ(far.read(9), "ATDT95\r5\r");

    // A field that is full to its last byte must not run into the one behind it.
    std::memset(open.record().resetStr, 'R', sizeof open.record().resetStr);
    EXPECT_EQ(ComReset(port), 1);
    EXPECT_EQ(far.read(31), std::string(31, 'R'));

    EXPECT_EQ(far.readToQuiet(), "");
}

TEST_F(OnABareLine, ACancelNeverCutsTheCommandInHalf) {
    open.record().dialTimeout = 2;
    // Before the number, and nothing is sent; on a busy machine it may come behind it.
    EXPECT_TRUE(eventually([this] {
        auto early = std::async(std::launch::async, [] {
            std::this_thread::sleep_for(50ms);
            ComCancel(port);
        });
        EXPECT_EQ(ComDial(port, "12"), -1);
        return far.readToQuiet(500ms).empty();
    }));
    auto late = std::async(std::launch::async, [] { return ComDial(port, "1~2"); });
    EXPECT_EQ(far.read(5), "ATDT1");
    ComCancel(port);
    EXPECT_EQ(late.get(), -1);
    EXPECT_EQ(far.read(2), "2\r");
}

} // namespace
} // namespace brisolt::test

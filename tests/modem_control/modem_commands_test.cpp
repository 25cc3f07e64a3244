// The single modem commands at a simulated modem: on a null modem, where carrier and ring are lines, and on a
// pseudo terminal, which has none. A bare line shows what is sent byte for byte.
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "modem/simulator.h"
#include "modem/terminal.h"
#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

using simulated::Phase;
using Lines = std::vector<std::string>;

constexpr int32_t port = 21;
constexpr int32_t closedPort = 22;
constexpr int pace = 10; ///< so fast runs our time and the modems'

// ---- at a modem -------------------------------------------------------------------------------------------

/// A modem, the port at it, and another modem (200) that answers, with a program of its own.
class AtAModem : public testing::Test {
protected:
    explicit AtAModem(std::unique_ptr<simulated::Line> line)
        : modem(std::move(line), exchange, {.number = "100", .timeScale = pace}) {
        exchange.set("5", simulated::Fate::ringsForEver);
    }
    static std::string until(const std::string& text) { return untilOnPort(port, text); }
    void setHangUp(const char* text) const {
        std::snprintf(open.record().discStr, sizeof open.record().discStr, "%s", text);
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
    EXPECT_EQ(ComCarrier(port), 0);
    EXPECT_EQ(ComDial(port, "200"), 1);
    EXPECT_EQ(ComCarrier(port), 1);
    EXPECT_EQ(ComCarrierTx(port), 1);
    until("CONNECT 33600\r\n");
    terminal.until("CONNECT 33600\r\n");
    ComPuts(port, "hello");
    terminal.until("hello");
    terminal.send("yes?");
    until("yes?");

    far.dropNow();
    EXPECT_TRUE(eventually([] { return ComCarrier(port) == 0; }));
    EXPECT_EQ(ComCarrierTx(port), 1) << "the latch is no live line";
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_EQ(ComCarrierTx(port), 0);

    EXPECT_EQ(ComDial(port, "200"), 1);
    until("CONNECT 33600\r\n");
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_EQ(ComCarrier(port), 1) << "a modem online takes a bare ATH0 for data";
    setHangUp("~~+++~~ATH0|");
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_GE(clock::ticks() - start, 5000U) << "its four pauses and a second behind them";
    EXPECT_EQ(ComCarrier(port), 0);
    EXPECT_EQ(modem.status().phase, Phase::idle);
    EXPECT_EQ(modem.commands(), (Lines{"AT&F&C1&D2", "ATDT200", "ATH0", "ATDT200", "ATH0"}));
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

TEST_F(OnANullModem, DiallingEndsWhenAskedTo) {
    const auto dialAnd = [](const std::function<void()>& meanwhile) {
        std::thread other([&] {
            std::this_thread::sleep_for(500ms); // much more than the number takes
            meanwhile();
        });
        const int32_t result = ComDial(port, "5");
        other.join();
        return result;
    };
    open.record().dialTimeout = 600;
    EXPECT_EQ(dialAnd([] { ComCancel(port); }), -1);
    const uint32_t self = ComHostThreadId();
    ComPortSetEscapeChar(port, 'q');
    EXPECT_EQ(dialAnd([=] {
                  ComHostPostChar(self, 'x');
                  ComHostPostChar(self, 'q');
              }),
              0);
    EXPECT_EQ(dialAnd([=] { ComHostPostQuit(self); }), 0);
    ComHostMessage message;
    EXPECT_EQ(ComHostGetMessage(&message, 0), -1);
    EXPECT_EQ(dialAnd([this] { open.close(); }), -1);
    EXPECT_EQ(modem.commands().front(), "ATDT5");
}

TEST_F(OnAPty, EachSendsItsString) {
    using Call = int32_t (*)(int32_t);
    const std::vector<std::pair<Call, std::string>> cases{
        {ComReset, "ATZ"},
        {ComModemInit, "AT&F&C1&D2"},
        {[](int32_t number) { return ComSetAns(number, 2); }, "ATS0=1"},
        {[](int32_t number) { return ComSetAns(number, 0); }, "ATS0=0"},
        {ComModemSetCompression_ON, "ATS46=138"},
        {ComModemSetCompression_OFF, "ATS46=136"},
        {ComModemSetFlowControl_OFF, "AT&K0"},
        {ComModemSetFlowControl_HDWR, "AT&K3"},
        {ComModemSetFlowControl_SOFT, "AT&K4"},
        {ComModemSetErrorControl_ON, "AT&Q5S36=7S48=7"},
        {ComModemSetErrorControl_OFF, "AT&Q6S36=3S48=128"},
        {ComModemSetErrorControl_FORCED, "AT&Q5S36=4S48=7"},
        {ComDisc, "ATH0"},
    };
    Lines expected;
    for (const auto& [call, command] : cases) {
        EXPECT_EQ(call(port), 1) << command;
        until("\r\nOK\r\n");
        expected.push_back(command);
        for (const int32_t number : {0, 257, closedPort})
            EXPECT_EQ(call(number), -1) << command;
    }
    EXPECT_EQ(modem.commands(), expected);
}

TEST_F(OnAPty, AConnectionThatDoesNotShowEndsTheDialWithItsTime) {
    open.record().dialTimeout = 10;
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComDial(port, "200"), -1);
    EXPECT_GE(clock::ticks() - start, 10010U);
    EXPECT_TRUE(modem.waitFor(Phase::online)) << "it is connected all the same";
    EXPECT_EQ(ComCarrier(port), -1);
    EXPECT_EQ(ComCarrierTx(port), 0);
    until("CONNECT 33600\r\n");
    setHangUp("~~+++~~ATH0|");
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_TRUE(modem.waitFor(Phase::idle));
    terminal.until("NO CARRIER\r\n");

    EXPECT_EQ(ComRing(port), 0) << "nor does a ring";
}

// ---- on a bare line ---------------------------------------------------------------------------------------

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
    EXPECT_EQ(far.readToQuiet(), "ATDT95\r5\r");

    // A field that is full to its last byte must not run into the one behind it.
    std::memset(open.record().resetStr, 'R', sizeof open.record().resetStr);
    EXPECT_EQ(ComReset(port), 1);
    EXPECT_EQ(far.read(31), std::string(31, 'R'));

    EXPECT_EQ(ComDial(port, nullptr), -1);
    EXPECT_EQ(ComDial(closedPort, "1"), -1);
    EXPECT_EQ(far.readToQuiet(50ms), "");
}

TEST_F(OnABareLine, ACancelNeverCutsTheCommandInHalf) {
    auto early = std::async(std::launch::async, [] {
        std::this_thread::sleep_for(50ms);
        ComCancel(port);
    });
    EXPECT_EQ(ComDial(port, "12"), -1);
    early.get();
    EXPECT_EQ(far.readToQuiet(), "") << "cancelled before the number: nothing is sent";

    auto late = std::async(std::launch::async, [] { return ComDial(port, "1~2"); });
    EXPECT_EQ(far.read(5), "ATDT1");
    ComCancel(port);
    EXPECT_EQ(late.get(), -1);
    EXPECT_EQ(far.readToQuiet(), "2\r");
}

TEST_F(OnABareLine, CarrierLossIsKeptForTheCaller) {
    EXPECT_EQ(ComSetCarrierLossProtocol(port, 7), 1);
    EXPECT_EQ(ComGetCarrierLossProtocolState(port), 1);
    EXPECT_EQ(ComSetCarrierLossProtocolState(port, 0), 1);
    EXPECT_EQ(ComGetCarrierLossProtocol(port), 7);
    EXPECT_EQ(ComGetCarrierLossProtocolState(port), 0);
}

TEST_F(OnABareLine, WaitingForCarrierCostsNextToNothing) {
    open.record().dialTimeout = 3;
    const auto used = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [] { EXPECT_EQ(ComDial(port, "1"), -1); });
    EXPECT_LT(used, 300ms); // of 3 s, on a machine that others use too
}

} // namespace
} // namespace brisolt::test

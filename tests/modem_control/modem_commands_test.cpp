// The single modem commands: what they send, how dialling waits for carrier and how it ends.
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "api/brisolt_host.h"
#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 21;
constexpr int32_t farPort = 22;

// ---- on a line without modem lines ------------------------------------------------------------------------

class Commands : public testing::Test {
protected:
    /// What the far end gets of a call.
    std::string sentBy(const std::function<int32_t()>& call, int32_t result = 1) {
        EXPECT_EQ(call(), result);
        return far.readToQuiet();
    }
    /// ComDial while something happens a while after its start.
    int32_t dialAnd(const std::function<void()>& meanwhile, std::chrono::milliseconds later = 700ms) {
        std::thread other([&] {
            std::this_thread::sleep_for(later);
            meanwhile();
        });
        const int32_t result = ComDial(port, "5551234");
        other.join();
        return result;
    }
    Pty far;
    OpenPort open{port, far.slavePath()};
};

TEST_F(Commands, EachSendsItsString) {
    using Call = int32_t (*)(int32_t);
    const std::vector<std::pair<Call, std::string>> cases{
        {ComReset, "ATZ\r"},
        {ComModemInit, "AT&F&C1&D2\r"},
        {[](int32_t number) { return ComSetAns(number, 2); }, "ATS0=1\r"},
        {[](int32_t number) { return ComSetAns(number, 0); }, "ATS0=0\r"},
        {ComModemSetCompression_ON, "ATS46=138\r"},
        {ComModemSetCompression_OFF, "ATS46=136\r"},
        {ComModemSetFlowControl_OFF, "AT&K0\r"},
        {ComModemSetFlowControl_HDWR, "AT&K3\r"},
        {ComModemSetFlowControl_SOFT, "AT&K4\r"},
        {ComModemSetErrorControl_ON, "AT&Q5S36=7S48=7\r"},
        {ComModemSetErrorControl_OFF, "AT&Q6S36=3S48=128\r"},
        {ComModemSetErrorControl_FORCED, "AT&Q5S36=4S48=7\r"},
    };
    for (const auto& [call, sent] : cases) {
        EXPECT_EQ(call(port), 1);
        EXPECT_EQ(far.read(sent.size()), sent);
    }
    EXPECT_EQ(far.readToQuiet(50ms), "");
    for (const auto& [call, sent] : cases)
        for (const int32_t number : {0, 257, farPort})
            EXPECT_EQ(call(number), -1) << sent;
}

// A port that a parameter record has made number 0 takes no strings, and only the reset tells so.
TEST_F(Commands, OnlyTheResetTellsThatNothingWasSent) {
    open.record().portNumber = 0;
    EXPECT_EQ(ComModemInit(port), 1);
    EXPECT_EQ(ComSetAns(port, 1), 1);
    EXPECT_EQ(ComModemSetCompression_ON(port), 1);
    EXPECT_EQ(ComReset(port), -1);
    open.record().portNumber = port;
}

// A field that is full to its last byte must not run into the one behind it.
TEST_F(Commands, AFullFieldEndsAtItsEnd) {
    std::memset(open.record().resetStr, 'R', sizeof open.record().resetStr);
    EXPECT_EQ(sentBy([] { return ComReset(port); }), std::string(31, 'R'));
}

TEST_F(Commands, HangUpWaitsASecondAndClearsTheLatch) {
    ComSetCarrier(port, 1);
    const uint32_t start = clock::ticks();
    EXPECT_EQ(sentBy([] { return ComDisc(port); }), "ATH0\r");
    EXPECT_GE(clock::ticks() - start, 1000U);
    EXPECT_EQ(ComCarrierTx(port), 0);
    EXPECT_EQ(ComDisc(farPort), -1);
}

TEST_F(Commands, CarrierLossIsKeptForTheCaller) {
    EXPECT_EQ(ComGetCarrierLossProtocolState(port), 0);
    EXPECT_EQ(ComSetCarrierLossProtocol(port, 7), 1);
    EXPECT_EQ(ComGetCarrierLossProtocol(port), 7);
    EXPECT_EQ(ComGetCarrierLossProtocolState(port), 1);
    EXPECT_EQ(ComSetCarrierLossProtocolState(port, 0), 1);
    EXPECT_EQ(ComGetCarrierLossProtocolState(port), 0);
    EXPECT_EQ(ComGetCarrierLossProtocol(port), 7);
    EXPECT_EQ(ComSetCarrierLossProtocolState(port, -5), 1);
    EXPECT_EQ(ComGetCarrierLossProtocolState(port), 1);
    EXPECT_EQ(ComSetCarrierLossProtocol(farPort, 7), -1);
    EXPECT_EQ(ComGetCarrierLossProtocol(farPort), -1);
    EXPECT_EQ(ComGetCarrierLossProtocolState(0), -1);
}

TEST_F(Commands, DialWithoutPatienceReturnsWhenItHasSent) {
    open.record().dialTimeout = 0;
    ComCancel(port); // nothing runs: forgotten
    const uint32_t start = clock::ticks();
    EXPECT_EQ(ComDial(port, "9~5|5~"), 1);
    EXPECT_GE(clock::ticks() - start, 2U * 251 + 2000);
    EXPECT_EQ(far.readToQuiet(), "ATDT95\r5\r");
    EXPECT_EQ(ComDial(port, nullptr), -1);
    EXPECT_EQ(ComDial(farPort, "1"), -1);
    EXPECT_EQ(far.readToQuiet(50ms), "");
}

TEST_F(Commands, DialGivesUpWithItsTime) {
    FastClock fast(50);
    struct Case {
        int32_t patience;
        uint32_t least, most;
    };
    for (const Case& each : {Case{60, 60010, 90000}, Case{2, 2010, 10000}, Case{-3, 502, 10000}}) {
        open.record().dialTimeout = each.patience;
        const uint32_t start = clock::ticks();
        EXPECT_EQ(sentBy([] { return ComDial(port, "1"); }, -1), "ATDT1\r");
        const uint32_t took = clock::ticks() - start;
        EXPECT_GE(took, each.least);
    }
}

TEST_F(Commands, DialEndsWhenAskedTo) {
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
    EXPECT_EQ(far.readToQuiet(), "ATDT5551234\rATDT5551234\rATDT5551234\r");
    EXPECT_EQ(dialAnd([this] { open.close(); }), -1);
}

TEST_F(Commands, ACancelBeforeTheNumberSendsNothing) {
    EXPECT_EQ(dialAnd([] { ComCancel(port); }, 50ms), -1);
    EXPECT_EQ(far.readToQuiet(), "");
}

TEST_F(Commands, ACancelInTheNumberEndsBehindTheLine) {
    std::thread other([] {
        std::this_thread::sleep_for(600ms);
        ComCancel(port);
    });
    EXPECT_EQ(ComDial(port, "1~2"), -1);
    other.join();
    EXPECT_EQ(far.readToQuiet(), "ATDT12\r");
}

TEST_F(Commands, WaitingForCarrierCostsNextToNothing) {
    open.record().dialTimeout = 3;
    const auto used = processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [] { EXPECT_EQ(ComDial(port, "1"), -1); });
    EXPECT_LT(used, 300ms); // of 3 s, on a machine that others use too
}

TEST_F(Commands, RingOfALineThatCannotTell) {
    EXPECT_EQ(ComRing(port), 0);
    EXPECT_EQ(ComRing(farPort), -1);
    open.record().ringFunc = +[](int32_t number) { return number + 1000; };
    EXPECT_EQ(ComRing(port), port + 1000);
}

// ---- on a line with modem lines ---------------------------------------------------------------------------

class CommandsOnModemLines : public testing::Test {
protected:
    static constexpr const char* cable = "null-modem:commands";
    OpenPort open{port, cable};
    OpenPort far{farPort, cable};
};

TEST_F(CommandsOnModemLines, DialEndsWithCarrierAndLatchesIt) {
    ComClearDTR(farPort);
    EXPECT_EQ(ComCarrierTx(port), 0);
    auto dialled = std::async(std::launch::async, [] { return ComDial(port, "5551234"); });
    EXPECT_EQ(readTimed(farPort, 12), "ATDT5551234\r");
    EXPECT_EQ(dialled.wait_for(700ms), std::future_status::timeout);
    const auto start = SteadyClock::now();
    ComSetDTR(farPort);
    EXPECT_EQ(dialled.get(), 1);
    EXPECT_LT(SteadyClock::now() - start, 5s); // of the minute that it might have waited
    EXPECT_EQ(ComCarrierTx(port), 1);
    ComClearDTR(farPort);
    EXPECT_EQ(ComCarrierTx(port), 1); // no live line
    ComDisc(port);
    EXPECT_EQ(ComCarrierTx(port), 0);
}

TEST_F(CommandsOnModemLines, AWholeSession) {
    ComClearDTR(farPort);
    std::atomic<bool> over = false;
    std::vector<std::string> commands;
    std::thread modem([&] {
        std::string command;
        while (!over) {
            command += readUpTo(farPort, 1);
            if (!command.ends_with('\r')) {
                ComSleepMS(farPort, ComStatus(farPort) > 0 ? 0 : 1);
                continue;
            }
            command.pop_back();
            if (command.starts_with("ATDT"))
                ComSetDTR(farPort);
            if (command == "ATH0")
                ComClearDTR(farPort);
            commands.push_back(std::exchange(command, {}));
            ComPuts(farPort, commands.back().starts_with("ATDT") ? "|\nCONNECT|\n" : "|\nOK|\n");
        }
    });
    const auto database = std::filesystem::path(__FILE__).parent_path() / "../../share/modems.txt";
    EXPECT_EQ(ComSetModem(port, database.c_str(), "Rockwell/Conexant", 1, 1, 1, 1, 1, 0, nullptr), 1);
    EXPECT_EQ(ComDial(port, "5551234"), 1);
    EXPECT_EQ(ComCarrier(port), 1);
    EXPECT_EQ(ComDisc(port), 1);
    EXPECT_EQ(ComCarrier(port), 0);
    over = true;
    modem.join();
    EXPECT_EQ(commands, (std::vector<std::string>{"ATZ", "AT&F&C1&D2", "AT&K3", "AT%C3", "AT\\N3", "ATS0=0",
                                                  "ATDT5551234", "ATH0"}));
}

TEST_F(CommandsOnModemLines, RingFollowsTheLine) {
    EXPECT_EQ(ComRing(port), 0);
    ComHostRing(cable, 1);
    EXPECT_EQ(ComRing(port), 1);
    ComHostRing(cable, 0);
    EXPECT_EQ(ComRing(port), 0);
}

} // namespace
} // namespace brisolt::test

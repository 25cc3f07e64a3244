// Each side holds the other off: with its modem lines, and with XOFF and XON.
#include <array>

#include <gtest/gtest.h>

#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr const char* xon = "\x11";
constexpr const char* xoff = "\x13";
constexpr uint8_t dtrBit = 1, rtsBit = 2;

// ---- The peer holds us off with its lines -------------------------------------------------------------

struct LineCase {
    const char* name;
    int32_t mode;
    int32_t line; ///< the one in loopback that is crossed to what holds us off
    bool lossless;
};

void PrintTo(const LineCase& line, std::ostream* out) {
    *out << line.name;
}

class HeldByALine : public testing::TestWithParam<LineCase> {
protected:
    void hold(const Loopback& loopback, bool on) {
        if (GetParam().line == Loopback::rts)
            loopback.holdOff(on);
        else if (on)
            loopback.lower(Loopback::dtr);
        else
            loopback.raise(Loopback::dtr);
    }
};

TEST_P(HeldByALine, NothingLeavesUntilItRises) {
    const Port port(uart);
    const Loopback loopback;
    ComSetWriteTimeout(port, 60'000);
    ComHostSetLossless(port, GetParam().lossless ? 1 : 0);
    ASSERT_EQ(ComSetFlow(port, GetParam().mode), 1);
    EXPECT_EQ(send(port, "before"), 6);
    EXPECT_EQ(receive(port, 6), "before");

    hold(loopback, true);
    const std::string block = pattern(1000);
    auto writer = sendAside(port, block);
    if (GetParam().lossless) {
        ASSERT_TRUE(finishes(writer)) << "a lossless port never waits for the line";
        EXPECT_GT(ComOutBufStatus(port), 900);
        EXPECT_LE(receive(port, 1000, soon).size(), 16U);
        hold(loopback, false);
        EXPECT_TRUE(eventually([&] { return ComOutBufStatus(port) == 0; }));
    } else {
        EXPECT_TRUE(stillRunning(writer));
        hold(loopback, false);
        ASSERT_TRUE(finishes(writer));
        EXPECT_EQ(receive(port, 1000), block);
    }
    EXPECT_EQ(writer.get(), 1000);
}

INSTANTIATE_TEST_SUITE_P(Of, HeldByALine,
                         testing::Values(LineCase{"CtsInMode0", 0, Loopback::rts, false},
                                         LineCase{"CtsInMode0Lossless", 0, Loopback::rts, true},
                                         LineCase{"CtsInMode4", 4, Loopback::rts, false},
                                         LineCase{"CtsInMode4Lossless", 4, Loopback::rts, true},
                                         LineCase{"DsrInMode3", 3, Loopback::dtr, false},
                                         LineCase{"DsrInMode4", 4, Loopback::dtr, false},
                                         LineCase{"DsrInMode4Lossless", 4, Loopback::dtr, true}),
                         [](const auto& line) { return std::string(line.param.name); });

// ---- We hold the peer off -------------------------------------------------------------------------------

class HoldingOff : public testing::TestWithParam<std::pair<int32_t, uint8_t>> {};

TEST_P(HoldingOff, TheLineFallsWhileNobodyReadsAndRisesAgain) {
    const auto [mode, line] = GetParam();
    const Tty far(otherUart);
    const Port port(uart);
    ASSERT_EQ(ComSetFlow(port, mode), 1);
    const std::string stream = pattern(8192 + 8000); // the ring, and more than the kernel likes to hold
    far.write(stream);
    EXPECT_TRUE(eventually([line = line] { return (uartRegister(modemControl) & line) == 0; }));
    EXPECT_EQ(receive(port, stream.size()), stream);
    EXPECT_TRUE(eventually([line = line] { return (uartRegister(modemControl) & line) != 0; }));
}

INSTANTIATE_TEST_SUITE_P(Mode, HoldingOff,
                         testing::Values(std::pair{0, rtsBit}, std::pair{3, dtrBit}, std::pair{4, rtsBit},
                                         std::pair{4, dtrBit}, std::pair{5, dtrBit}),
                         [](const auto& mode) {
                             return std::to_string(mode.param.first) +
                                    (mode.param.second == rtsBit ? "Rts" : "Dtr");
                         });

// ---- XON/XOFF --------------------------------------------------------------------------------------------

TEST(XonXoff, AnXoffHoldsOutputUntilXon) {
    const Tty far(otherUart);
    const Port port(uart);
    ComSetWriteTimeout(port, 60'000);
    ASSERT_EQ(ComSetFlow(port, 1), 1);
    EXPECT_EQ(send(port, "before"), 6);
    EXPECT_EQ(far.read(6), "before");
    far.write(xoff);
    std::this_thread::sleep_for(soon);
    auto writer = sendAside(port, "held");
    EXPECT_TRUE(stillRunning(writer));
    EXPECT_EQ(far.read(4, Milliseconds(0)), "");
    far.write(xon);
    ASSERT_TRUE(finishes(writer));
    EXPECT_EQ(writer.get(), 4);
    EXPECT_EQ(far.read(4), "held");
    far.write("plain");
    EXPECT_EQ(receive(port, 5), "plain") << "neither XOFF nor XON is for the reader";
}

TEST(XonXoff, AFlushLetsOutputGoOn) {
    const Tty far(otherUart);
    const Port port(uart);
    ASSERT_EQ(ComHostSetLossless(port, 1), 1);
    ASSERT_EQ(ComSetFlow(port, 1), 1);
    far.write(xoff);
    std::this_thread::sleep_for(soon);
    EXPECT_EQ(send(port, "held"), 4);
    EXPECT_EQ(far.read(4, soon), "");
    EXPECT_EQ(Com_Flush(port, 0), 1);
    EXPECT_EQ(far.read(4), "held") << "the XON may have been among what was flushed";
}

TEST(XonXoff, WithoutTheModeBothAreBytes) {
    const Tty far(otherUart);
    const Port port(uart);
    far.write(std::string(xoff) + xon);
    EXPECT_EQ(receive(port, 2), std::string(xoff) + xon);
    far.write(xoff);
    EXPECT_EQ(send(port, "not held"), 8);
    EXPECT_EQ(far.read(8), "not held");
}

TEST(XonXoff, WeSendThemAsOurInputFillsAndEmpties) {
    const Tty far(otherUart);
    const Port port(uart);
    ASSERT_EQ(ComSetFlow(port, 1), 1);
    const std::string stream = pattern(8192 + 8000);
    far.write(stream);
    EXPECT_EQ(far.read(1), xoff);
    EXPECT_EQ(receive(port, stream.size()), stream);
    EXPECT_EQ(far.read(1), xon);
}

} // namespace

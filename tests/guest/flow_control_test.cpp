// Each side holds the other off: with its modem lines, and with XOFF and XON.
#include <tuple>

#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr const char* xon = "\x11";
constexpr const char* xoff = "\x13";
constexpr uint8_t dtrBit = 1, rtsBit = 2;

// ---- The peer holds us off with its lines -------------------------------------------------------------

struct LineCase {
    int32_t mode;
    int32_t line; ///< the one in loopback that is crossed to what holds us off
};

class HeldByALine : public testing::TestWithParam<std::tuple<LineCase, bool>> {
protected:
    void hold(const Loopback& loopback, bool on) const {
        if (line_.line == Loopback::rts)
            loopback.holdOff(on);
        else if (on)
            loopback.lower(Loopback::dtr);
        else
            loopback.raise(Loopback::dtr);
    }
    const LineCase line_ = std::get<0>(GetParam());
    const bool lossless_ = std::get<1>(GetParam());
};

TEST_P(HeldByALine, NothingLeavesUntilItRises) {
    const Port port(uart);
    const Loopback loopback;
    ComSetWriteTimeout(port, 60'000);
    ComHostSetLossless(port, lossless_ ? 1 : 0);
    ASSERT_EQ(ComSetFlow(port, line_.mode), 1);
    EXPECT_EQ(send(port, "before"), 6);
    EXPECT_EQ(receive(port, 6), "before");

    hold(loopback, true);
    const std::string block = letters(1000);
    auto writer = sendAside(port, block);
    if (lossless_) {
        ASSERT_TRUE(finishes(writer)) << "a lossless port never waits for the line";
        std::this_thread::sleep_for(soon);
        EXPECT_GT(ComOutBufStatus(port), 900);
        EXPECT_LE(ComStatus(port), 16) << "at most what the UART itself held";
        hold(loopback, false);
    } else {
        EXPECT_TRUE(stillRunning(writer));
        hold(loopback, false);
        ASSERT_TRUE(finishes(writer));
    }
    EXPECT_EQ(receive(port, 1000), block);
    EXPECT_EQ(writer.get(), 1000);
}

constexpr LineCase heldBy[] = {
    {0, Loopback::rts}, {4, Loopback::rts}, {3, Loopback::dtr}, {4, Loopback::dtr}};

INSTANTIATE_TEST_SUITE_P(Of, HeldByALine, testing::Combine(testing::ValuesIn(heldBy), testing::Bool()),
                         [](const auto& held) {
                             const LineCase& line = std::get<0>(held.param);
                             return (line.line == Loopback::rts ? "CtsInMode" : "DsrInMode") +
                                    std::to_string(line.mode) + (std::get<1>(held.param) ? "Lossless" : "");
                         });

// ---- We hold the peer off -------------------------------------------------------------------------------

struct HoldingCase {
    int32_t mode;
    uint8_t line; ///< the one that falls; 0: an XOFF is sent
};

class HoldingOff : public testing::TestWithParam<HoldingCase> {};

TEST_P(HoldingOff, WhileNobodyReads) {
    const auto [mode, line] = GetParam();
    const Tty far(otherUart);
    const Port port(uart);
    ASSERT_EQ(ComSetFlow(port, mode), 1);
    const auto says = [&far, line = line](bool stop) {
        if (line == 0)
            return far.read(1) == (stop ? xoff : xon);
        return eventually([&] { return ((uartRegister(modemControl) & line) == 0) == stop; });
    };
    const std::string stream = letters(2048 + 8000); // the ring, and more than the kernel likes to hold
    far.write(stream);
    EXPECT_TRUE(says(true));
    EXPECT_EQ(receive(port, stream.size()), stream);
    EXPECT_TRUE(says(false));
}

INSTANTIATE_TEST_SUITE_P(
    Mode, HoldingOff,
    testing::Values(HoldingCase{0, rtsBit}, HoldingCase{1, 0}, HoldingCase{3, dtrBit}, HoldingCase{4, rtsBit},
                    HoldingCase{4, dtrBit}, HoldingCase{5, dtrBit}),
    [](const auto& holding) {
        const uint8_t line = holding.param.line;
        return std::to_string(holding.param.mode) + (line == 0 ? "Xoff" : line == rtsBit ? "Rts" : "Dtr");
    });

// ---- XON/XOFF --------------------------------------------------------------------------------------------

TEST(XonXoff, AnXoffHoldsOutputUntilXonOrAFlush) {
    const Tty far(otherUart);
    const Port port(uart);
    far.write(std::string(xoff) + xon + xoff);
    EXPECT_EQ(receive(port, 3), std::string(xoff) + xon + xoff) << "without the mode they are bytes";
    EXPECT_EQ(send(port, "not held"), 8);
    EXPECT_EQ(far.read(8), "not held");

    ComSetWriteTimeout(port, 60'000);
    ASSERT_EQ(ComSetFlow(port, 1), 1);
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

    ASSERT_EQ(ComHostSetLossless(port, 1), 1);
    far.write(xoff);
    std::this_thread::sleep_for(soon);
    EXPECT_EQ(send(port, "held"), 4);
    EXPECT_EQ(far.read(4, soon), "");
    EXPECT_EQ(Com_Flush(port, 0), 1);
    EXPECT_EQ(far.read(4), "held") << "the XON may have been among what was flushed";
}

} // namespace

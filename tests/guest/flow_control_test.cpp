// Each side holds the other off: with its modem lines, and with XOFF and XON.
#include <utility>

#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr const char* xon = "\x11";
constexpr const char* xoff = "\x13";
constexpr uint8_t dtrBit = 1, rtsBit = 2;

// ---- The peer holds us off with its lines -------------------------------------------------------------

/// A flow mode, and the line in loopback that is crossed to what holds us off.
class HeldByALine : public testing::TestWithParam<std::pair<int32_t, int32_t>> {};

TEST_P(HeldByALine, NothingLeavesUntilItRises) {
    for (const bool lossless : {false, true}) {
        SCOPED_TRACE(lossless ? "lossless" : "plain");
        const auto [mode, line] = GetParam();
        const Port port(uart);
        const Loopback loopback;
        const auto hold = [&loopback, line = line](bool on) {
            if (line == Loopback::rts)
                loopback.holdOff(on);
            else
                on ? loopback.lower(line) : loopback.raise(line);
        };
        ComSetWriteTimeout(port, 60'000);
        ComHostSetLossless(port, lossless ? 1 : 0);
        ASSERT_EQ(ComSetFlow(port, mode), 1);
        EXPECT_EQ(send(port, "before"), 6);
        EXPECT_EQ(receive(port, 6), "before");

        hold(true);
        const std::string block = letters(1000);
        auto writer = sendAside(port, block);
        if (lossless) {
            ASSERT_TRUE(finishes(writer)) << "a lossless port never waits for the line";
            std::this_thread::sleep_for(soon);
            EXPECT_GT(ComOutBufStatus(port), 900);
            EXPECT_LE(ComStatus(port), 16) << "at most what the UART itself held";
            hold(false);
        } else {
            EXPECT_TRUE(stillRunning(writer));
            hold(false);
            ASSERT_TRUE(finishes(writer));
        }
        EXPECT_EQ(receive(port, 1000), block);
        EXPECT_EQ(writer.get(), 1000);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, HeldByALine,
                         testing::Values(std::pair{0, Loopback::rts}, std::pair{4, Loopback::rts},
                                         std::pair{3, Loopback::dtr}, std::pair{4, Loopback::dtr}),
                         [](const auto& held) {
                             return (held.param.second == Loopback::rts ? "CtsInMode" : "DsrInMode") +
                                    std::to_string(held.param.first);
                         });

// ---- We hold the peer off -------------------------------------------------------------------------------

/// A flow mode, and the line that falls; 0: an XOFF is sent.
class HoldingOff : public testing::TestWithParam<std::pair<int32_t, uint8_t>> {};

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

INSTANTIATE_TEST_SUITE_P(Mode, HoldingOff,
                         testing::Values(std::pair{0, rtsBit}, std::pair{1, uint8_t{0}}, std::pair{3, dtrBit},
                                         std::pair{4, rtsBit}, std::pair{4, dtrBit}, std::pair{5, dtrBit}),
                         [](const auto& holding) {
                             const uint8_t line = holding.param.second;
                             return std::to_string(holding.param.first) + (line == 0        ? "Xoff"
                                                                           : line == rtsBit ? "Rts"
                                                                                            : "Dtr");
                         });

// ---- XON/XOFF --------------------------------------------------------------------------------------------

TEST(XonXoff, AnXoffHoldsOutputUntilXon) {
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
}

} // namespace

// The modem lines that the library reports, and the calls that wait for them.
#include <array>

#include "guest.h"

using namespace brisolt::test;

namespace {

std::array<int32_t, 4> lines(int32_t port) {
    return {ComCarrier(port), ComGetCTSStatus(port), ComGetDSRStatus(port), ComRing(port)};
}

TEST(ModemLines, EachIsReportedByItself) {
    const Port port(uart);
    const Loopback loopback;
    const int32_t all = Loopback::dtr | Loopback::rts | Loopback::out1 | Loopback::out2;
    const std::array<int32_t, 4> sources{Loopback::out2, Loopback::rts, Loopback::dtr, Loopback::out1};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        std::array<int32_t, 4> expected{};
        loopback.lower(all);
        EXPECT_EQ(lines(port), expected);
        loopback.raise(sources[i]);
        expected[i] = 1;
        EXPECT_EQ(lines(port), expected) << "line " << i;
    }
}

TEST(ModemLines, OursAreDriven) {
    const Port port(uart);
    const Loopback loopback;
    EXPECT_EQ(ComClearDTR(port), 1);
    EXPECT_EQ(ComGetDSRStatus(port), 0);
    EXPECT_EQ(ComSetDTR(port), 1);
    EXPECT_EQ(ComGetDSRStatus(port), 1);
    EXPECT_EQ(ComClearRTS(port), 1);
    EXPECT_EQ(ComGetCTSStatus(port), 0);
    EXPECT_EQ(ComSetRTS(port), 1);
    EXPECT_EQ(ComGetCTSStatus(port), 1);
    auto pulse = std::async(async, ComDTR, int32_t{port}); // a second
    EXPECT_TRUE(eventually([&] { return ComGetDSRStatus(port) == 0; }));
    EXPECT_EQ(pulse.get(), 1);
    EXPECT_EQ(ComGetDSRStatus(port), 1);
    ComClearDTR(port);
    ComClearRTS(port);
    ComSetParms(port, 3, 7, 1);
    ComSetBaud(port, 1200);
    EXPECT_EQ(uartRegister(modemControl) & 3, 0) << "another setting raises no line that the program lowered";
}

TEST(ModemLines, ADeviceWithoutThemSaysSo) {
    const Port port(gadget);
    EXPECT_EQ(lines(port), (std::array{-1, 0, 0, 0}));
}

// The gadget raises carrier when a program opens its end.
TEST(Dial, ReturnsWhenAUsbModemReportsCarrier) {
    const Port port(usbModem);
    ComSetWriteTimeout(port, 20); // nobody reads yet
    EXPECT_EQ(ComCarrier(port), 0);
    auto call = std::async(async, [&] { return ComDial(port, "1"); });
    EXPECT_TRUE(stillRunning(call));
    const Tty far(gadget);
    ASSERT_TRUE(finishes(call));
    EXPECT_EQ(call.get(), 1);
    EXPECT_EQ(ComCarrier(port), 1);
    EXPECT_EQ(ComCarrierTx(port), 1);
}

} // namespace

// Modem lines, reported and driven; breaks and line errors: reported once, and then cleared.
#include <array>

#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr int32_t overrun = COM_HOST_ERROR_OVERRUN, breakSeen = COM_HOST_ERROR_BREAK;

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
    ComClearDTR(port);
    ComClearRTS(port);
    ComSetParms(port, 3, 7, 1);
    ComSetBaud(port, 1200);
    EXPECT_EQ(uartRegister(modemControl) & 3, 0) << "another setting raises no line that the program lowered";
}

TEST(Break, SeenOnAUartIsToldOnceAndIsNoByte) {
    const Tty far(breakSender);
    const Port port(breakUart);
    EXPECT_EQ(ComGetBreakStatus(port), 0);
    EXPECT_EQ(ComGetLineError(port), 0);
    far.write("a");
    EXPECT_EQ(receive(port, 1), "a");
    far.write("\xFF\xF3z");
    EXPECT_EQ(receive(port, 1), "z");
    EXPECT_TRUE(eventually([&] { return ComGetBreakStatus(port) == 1; }));
    EXPECT_EQ(ComGetBreakStatus(port), 0);
    EXPECT_EQ(ComGetLineError(port), breakSeen);
    EXPECT_EQ(ComGetLineError(port), 0);

    far.write("\xFF\xF3");
    EXPECT_TRUE(eventually([&] { return ComGetBreakStatus(port) == 1; })) << "no byte makes a round for it";
    ComSetParms(port, 3, 8, 1);
    ComSetLineErrorReplacement(port, 1, '?');
    far.write("\xFF\xF3");
    EXPECT_TRUE(eventually([&] { return ComGetBreakStatus(port) == 1; }));
    EXPECT_EQ(receiveToQuiet(port), "") << "nor is it a byte with an error";
}

TEST(Break, TravelsFromTheGadgetToTheModem) {
    const Port sender(gadget, 1);
    const Port receiver(usbModem, 2);
    EXPECT_EQ(ComBreak(sender), 1);
    EXPECT_TRUE(eventually([&] { return ComGetBreakStatus(receiver) == 1; }));
    EXPECT_EQ(ComGetBreakStatus(receiver), 0);
    EXPECT_EQ(ComGetLineError(receiver), breakSeen);
    EXPECT_EQ(send(sender, "works on"), 8);
    EXPECT_EQ(receive(receiver, 8), "works on");
}

// With its interrupts masked nobody empties the UART, and more bytes come than it holds.
TEST(LineErrors, AnOverrunIsCountedAndCleared) {
    constexpr uint16_t data = 0, interrupts = 1;
    const Port port(uart);
    const Loopback loopback;
    const uint8_t mask = uartRegister(interrupts);
    writeUartRegister(interrupts, 0);
    for (int32_t i = 0; i < 40; ++i)
        writeUartRegister(data, 'x');
    writeUartRegister(interrupts, mask);
    EXPECT_GE(receiveToQuiet(port).size(), 16U);
    EXPECT_EQ(ComGetLineError(port), overrun);
    EXPECT_EQ(ComGetLineError(port), 0);
}

TEST(LineErrors, AnAdoptedLineIsGivenBackWithoutMarks) {
    const Tty far(otherUart);
    const Tty owner(uart);
    const termios2 before = owner.settings();
    ASSERT_EQ(CPreOpen(1, 9600, 8, 1, 1, owner.descriptor()), 1);
    far.write("\xFF");
    EXPECT_EQ(receive(1, 1), "\xFF");
    EXPECT_EQ(ComPreClose(1), 1);
    EXPECT_EQ(owner.settings().c_iflag, before.c_iflag);
    far.write("\xFF");
    EXPECT_EQ(owner.read(2, soon), "\xFF");
}

} // namespace

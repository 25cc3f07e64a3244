// Breaks sent and seen, and line errors: reported once, and then cleared.
#include <gtest/gtest.h>

#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr uint8_t breakBit = 0x40;
constexpr int32_t overflow = COM_HOST_ERROR_RX_OVERFLOW, overrun = COM_HOST_ERROR_OVERRUN,
                  breakSeen = COM_HOST_ERROR_BREAK;

bool uartSendsBreak() {
    return (uartRegister(lineControl) & breakBit) != 0;
}

TEST(Break, IsOnTheLineForItsTime) {
    const Port port(uart);
    EXPECT_EQ(ComSetBreak_ON(port), 1);
    EXPECT_TRUE(uartSendsBreak());
    EXPECT_EQ(ComSetBreak_OFF(port), 1);
    EXPECT_FALSE(uartSendsBreak());
    auto call = std::async(async, ComBreak, int32_t{port}); // a quarter of a second
    EXPECT_TRUE(eventually(uartSendsBreak));
    EXPECT_EQ(call.get(), 1);
    EXPECT_FALSE(uartSendsBreak());
}

TEST(Break, SeenOnAUartIsToldOnceAndIsNoByte) {
    const Tty far(breakSender);
    const Port port(breakUart);
    EXPECT_EQ(ComGetBreakStatus(port), 0);
    EXPECT_EQ(ComGetLineError(port), 0);
    far.write("a\xFF\xF3z");
    EXPECT_EQ(receive(port, 2), "az");
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

// The kernel holds a lot, but not everything, for a reader who does not come.
TEST(LineErrors, AnOverflowIsCountedAndCleared) {
    const Tty far(gadget);
    const Port port(usbModem);
    EXPECT_EQ(ComGetLineError(port), 0);
    const std::string replaced = "\xFF\xFE plain \xFF";
    ComSetParms(port, 3, 8, 1);
    ComSetLineErrorReplacement(port, 1, '?');
    far.write(replaced);
    EXPECT_EQ(receive(port, replaced.size()), replaced) << "no byte is taken for the kernel's marks";
    EXPECT_EQ(ComGetLineError(port) & ~overflow, 0);
}

} // namespace

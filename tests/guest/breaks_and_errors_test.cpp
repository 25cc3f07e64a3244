// Breaks sent and seen, and line errors: reported once, and then cleared.
#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr uint8_t breakBit = 0x40;
constexpr int32_t overrun = COM_HOST_ERROR_OVERRUN, breakSeen = COM_HOST_ERROR_BREAK;

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

// The kernel marks broken bytes with bytes.
TEST(LineErrors, NoByteIsTakenForAMark) {
    std::string bytes;
    for (int32_t i = 0; i < 1024; ++i)
        bytes += static_cast<char>(i % 3 == 0 ? 0xFF : i % 5 == 0 ? 0 : i);
    const struct { const char *path, *far; } ends[]{{uart, otherUart}, {usbModem, gadget}};
    for (const auto& line : ends) {
        SCOPED_TRACE(line.path);
        const Tty far(line.far);
        const Port port(line.path);
        for (const bool replacing : {false, true}) {
            ComSetParms(port, 3, 8, 1);
            EXPECT_EQ(ComSetLineErrorReplacement(port, replacing ? 1 : 0, '?'), 1);
            far.write(bytes);
            EXPECT_EQ(receive(port, bytes.size()), bytes);
        }
        EXPECT_EQ(ComGetLineError(port), 0);
    }
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

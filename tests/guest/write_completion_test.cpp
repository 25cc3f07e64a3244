// A write is complete when the line has taken its bytes, and what the library says about them is true.
#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr uint8_t transmitterEmpty = 0x40;

class OnEveryDriver : public testing::TestWithParam<Line> {};

TEST_P(OnEveryDriver, ABlockIsCompleteWhenItHasLeft) {
    const Tty far(GetParam().second);
    const Port port(GetParam().first);
    const std::string block = letters(1024);
    for (int32_t round = 0; round < 3; ++round) {
        EXPECT_EQ(send(port, block), 1024);
        if (GetParam().first == std::string_view(uart)) {
            EXPECT_NE(uartRegister(lineStatus) & transmitterEmpty, 0);
            EXPECT_EQ(Tty(uart, Tty::As::witness).unsent(), 0);
            EXPECT_EQ(ComFlushImmediate(port), 1);
        }
        EXPECT_EQ(far.read(1024), block);
        far.write(block);
        EXPECT_EQ(receive(port, 1024), block);
    }
    EXPECT_EQ(ComOutBufStatus(port), 0);
}

INSTANTIATE_TEST_SUITE_P(Of, OnEveryDriver,
                         testing::Values(Line{uart, otherUart}, Line{adapter, adapterFarEnd},
                                         Line{usbModem, gadget}, Line{gadget, usbModem}),
                         nameOfLine);

TEST(WriteCompletion, WhatALineThatIsHeldOffDoesNotTakeInTimeNeverTurnsUp) {
    const Port port(uart);
    const Loopback loopback;
    const std::string block = letters(1024);
    ComSetFlow(port, 0);
    ComSetWriteTimeout(port, 200);
    loopback.holdOff(true);
    const int32_t written = send(port, block);
    EXPECT_GE(written, 0);
    EXPECT_LE(written, 16) << "at most what the UART itself holds";
    loopback.holdOff(false);
    EXPECT_EQ(send(port, "|after"), 6);
    EXPECT_EQ(receiveToQuiet(port), block.substr(0, static_cast<std::size_t>(written)) + "|after");
}

TEST(WriteCompletion, ACloseEndsTheWaitAtOnce) {
    for (const bool onThread : {false, true}) {
        SCOPED_TRACE(onThread ? "on the port's thread" : "on the caller's thread");
        const Port port(uart);
        const Loopback loopback;
        ComSetFlow(port, 0);
        loopback.holdOff(true);
        ComSetWriteTimeout(port, ~0U);
        if (onThread)
            ComSuspendPortWriteThru(port);
        auto writer = sendAside(port, letters(1000));
        EXPECT_EQ(stillRunning(writer), !onThread);
        std::this_thread::sleep_for(soon);
        expectQuickClose(port);
        EXPECT_TRUE(finishes(writer));
        EXPECT_LE(writer.get(), 1000);
    }
    expectTalk(Port(uart), Tty(otherUart));
}

// The far end of a USB line does not take what comes: no modem line tells of it.
class UsbHoldOff : public testing::TestWithParam<Gadget::Kind> {
protected:
    /// Writes until the far end takes no more: a write falls short, or leaves something with the driver that
    /// it does not give back. Bytes that are said to be delivered.
    static std::size_t fill(int32_t port, const std::string& stream) {
        std::size_t sent = 0;
        int32_t written = 1000;
        while (written == 1000 && ComOutBufStatus(port) == 0 && sent + 1000 <= stream.size()) {
            written = send(port, stream.substr(sent, 1000));
            sent += static_cast<std::size_t>(written);
        }
        EXPECT_LT(sent, stream.size()) << "it never was full";
        return sent;
    }
    const std::string stream_ = letters(400'000);
    Gadget gadget_{GetParam()};
};

TEST_P(UsbHoldOff, WhatIsSaidToBeDeliveredArrivesAndACloseDoesNotWaitForTheRest) {
    const Tty far(gadget);
    {
        const Port port(gadget_.path());
        ComSetWriteTimeout(port, 200);
        const std::size_t sent = fill(port, stream_);
        const std::string arrived = far.readToQuiet();
        EXPECT_EQ(arrived.size(), sent);
        EXPECT_TRUE(stream_.starts_with(arrived));
        EXPECT_EQ(send(port, "|after"), 6);
        EXPECT_EQ(far.read(6), "|after");
        fill(port, stream_);
        expectQuickClose(port);
    }
    far.readToQuiet();
    expectTalk(Port(gadget_.path()), far);
}

INSTANTIATE_TEST_SUITE_P(Of, UsbHoldOff, testing::Values(Gadget::Kind::modem, Gadget::Kind::plain),
                         [](const auto& kind) {
                             return kind.param == Gadget::Kind::modem ? "AModem" : "AnAdapter";
                         });

} // namespace

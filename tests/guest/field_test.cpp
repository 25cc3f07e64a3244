// What people meet in the field, on the kernel's own drivers: boards that must not be reset, devices that go and
// come back, lines that tell, ports on which nothing happens.
#include <atomic>
#include <filesystem>
#include <memory>
#include <vector>

#include "guest.h"

using namespace brisolt::test;

namespace {

constexpr uint8_t dtrAndRts = 3; ///< of the UART's modem control

bool comesTo(int32_t port, int32_t state) {
    return eventually([&] { return ComHostGetPortState(port) == state; });
}

// The kernel raises both lines in its open; a board that looks at them there is reset whatever we do.
TEST(FieldOpening, LinesStayDownAndUpAsThePathAsks) {
    {
        std::atomic<bool> done{false};
        auto pulse = std::async(async, [&done] {
            std::chrono::nanoseconds high{};
            auto last = Clock::now();
            while (!done) {
                const bool up = (uartRegister(modemControl) & dtrAndRts) != 0;
                const auto now = Clock::now();
                high += up ? now - last : std::chrono::nanoseconds{};
                last = now;
            }
            return high;
        });
        const FieldPort port(std::string(uart) + "?dtr=off&rts=off");
        std::this_thread::sleep_for(soon);
        done = true;
        EXPECT_LT(pulse.get(), Milliseconds(500)) << "more than the kernel's own pulse";
        EXPECT_EQ(uartRegister(modemControl) & dtrAndRts, 0);
    }
    EXPECT_EQ(uartRegister(modemControl) & dtrAndRts, 0);
    { const FieldPort port(std::string(uart) + "?close=leave"); }
    EXPECT_EQ(uartRegister(modemControl) & dtrAndRts, dtrAndRts) << "the host lowers them no more than we do";
    {
        const FieldPort port(uart);
        EXPECT_EQ(ComHostOpen((std::string(uart) + "?dtr=off&rts=off").c_str(), 9600, nullptr), -25);
        EXPECT_EQ(uartRegister(modemControl) & dtrAndRts, dtrAndRts) << "a refused open lowered them";
    }
    constexpr uint8_t dtr = 1; // RTS is the host's to lower, whom close=leave has told not to
    EXPECT_EQ(uartRegister(modemControl) & dtr, 0);
}

TEST(FieldLines, CarrierIsToldWithoutLooking) {
    const FieldPort port(usbModem, 9600);
    ComHostCounters seen = port.counters();
    auto waiter = std::async(async, [&] {
        return ComHostWaitEvent(port, COM_HOST_EVENT_CARRIER | COM_HOST_EVENT_GONE, &seen, -1);
    });
    EXPECT_TRUE(stillRunning(waiter));
    const uint64_t before = usage().wakeUps;
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_LE(usage().wakeUps, before + 1);
    EXPECT_EQ(ComHostSetLine(port, 115200, "7E1", -1), 1); // which ends the kernel's own wait for good
    std::this_thread::sleep_for(soon);
    const Tty far(gadget); // raises carrier
    ASSERT_TRUE(finishes(waiter));
    EXPECT_EQ(waiter.get(), int32_t{COM_HOST_EVENT_CARRIER});
    EXPECT_EQ(ComHostGetLines(port) & COM_HOST_MODEM_CARRIER, COM_HOST_MODEM_CARRIER);
}

TEST(FieldDrain, TheLastBitHasLeft) {
    const FieldPort port(uart);
    const Tty far(otherUart);
    const std::string bytes = letters(3000);
    EXPECT_EQ(ComHostWrite(port, bytes.data(), 3000, -1), 3000);
    EXPECT_EQ(ComHostDrain(port, -1), 1);
    EXPECT_EQ(Tty(uart, Tty::As::witness).unsent(), 0);
    constexpr uint8_t transmitterEmpty = 0x40;
    EXPECT_NE(uartRegister(lineStatus) & transmitterEmpty, 0);
    EXPECT_EQ(far.read(3000), bytes);
}

class FieldKept : public testing::Test {
protected:
    void awayAndBack(int32_t port, const std::function<void()>& meanwhile) {
        plug.unplug();
        ASSERT_TRUE(comesTo(port, 3));
        meanwhile();
        plug.plug();
        ASSERT_TRUE(comesTo(port, 1)) << errorTextNow();
    }
    Gadget plug;
};

TEST_F(FieldKept, WhatIsQueuedIsSentWhenTheGadgetIsLoadedAgain) {
    const FieldPort port(std::string(usbModem) + "?keep=yes");
    ComHostCounters seen = port.counters();
    awayAndBack(port, [&] {
        EXPECT_EQ(ComHostWaitEvent(port, COM_HOST_EVENT_GONE, &seen, 20000), int32_t{COM_HOST_EVENT_GONE});
        std::this_thread::sleep_for(soon * 2); // the last of what the unplugging stirred up
        const Usage before = usage();
        std::this_thread::sleep_for(std::chrono::seconds(2));
        EXPECT_LE(usage().wakeUps, before.wakeUps + 4) << "looking costs nothing";
        EXPECT_EQ(ComHostWrite(port, "queued", 6, 1000), 6);
    });
    EXPECT_EQ(ComHostWaitEvent(port, COM_HOST_EVENT_BACK, &seen, 20000), int32_t{COM_HOST_EVENT_BACK});
    const Tty far(gadget);
    EXPECT_EQ(far.read(6), "queued");
    far.write("in");
    EXPECT_EQ(port.read(2), "in");
}

// Somebody else still has the dead device open, so its name stays taken.
TEST_F(FieldKept, ItComesBackUnderAnotherName) {
    {
        const FieldPort port(std::string(usbModem) + "?keep=yes&exclusive=no");
        const Tty holder(usbModem, Tty::As::witness);
        plug.unplug();
        ASSERT_TRUE(comesTo(port, 3));
        EXPECT_EQ(std::system("modprobe g_serial"), 0);
        ASSERT_TRUE(comesTo(port, 1)) << errorTextNow();
        EXPECT_TRUE(std::filesystem::exists("/dev/ttyACM1"));
        const Tty far(gadget);
        EXPECT_EQ(ComHostWrite(port, "other", 5, 1000), 5);
        EXPECT_EQ(far.read(5), "other");
    }
    plug.unplug();
}

TEST(FieldUsb, APathNamesADeviceByItsIdentity) {
    EXPECT_EQ(ComHostOpen("usb:0403:6001", 9600, "8N1"), -25);
    const std::string text = errorTextNow();
    EXPECT_NE(text.find("ttyUSB0"), std::string::npos) << "two equal adapters are told: " << text;
    EXPECT_NE(text.find("ttyUSB1"), std::string::npos) << text;
    EXPECT_EQ(ComHostOpen("usb:0403:6002", 9600, "8N1"), -25);
    const Gadget there;
    const FieldPort port("usb:0525:*");
    expectTalk(port, Tty(gadget));
}

TEST(FieldDevices, AreToldOfAsTheyGoAndCome) {
    Gadget plug;
    ASSERT_EQ(ComHostSetDeviceMessage(0, ComHostThreadId()), 1);
    ComHostMessage message{};
    for (const bool comes : {false, true}) {
        comes ? plug.plug() : plug.unplug();
        do
            ASSERT_EQ(ComHostGetMessage(&message, 20000), 1);
        while (message.message != COM_HOST_MESSAGE_DEVICES);
        EXPECT_EQ(message.first, comes ? 1U : 0U);
    }
    EXPECT_EQ(ComHostSetDeviceMessage(0, 0), 1);
}

TEST(Idle, PortsOnEveryDriverCauseNoWakeUps) {
    std::vector<std::unique_ptr<Port>> ports;
    for (const char* path : {uart, otherUart, breakUart, usbModem, gadget, adapter}) {
        const auto number = static_cast<int32_t>(ports.size()) + 1;
        ports.push_back(std::make_unique<Port>(path + std::string("?keep=yes"), number));
        EXPECT_EQ(ComHostSetEventMessage(number,
                                         COM_HOST_EVENT_CTS | COM_HOST_EVENT_CARRIER | COM_HOST_EVENT_GONE, 0,
                                         ComHostThreadId()),
                  1);
    }
    EXPECT_EQ(ComHostSetDeviceMessage(0, ComHostThreadId()), 1);
    for (const int32_t mode : {2, 0, 4}) {
        for (const auto& port : ports)
            ComSetFlow(*port, mode);
        std::this_thread::sleep_for(soon * 2); // what the settings stirred up has settled
        const uint64_t before = usage().wakeUps;
        std::this_thread::sleep_for(std::chrono::seconds(2));
        EXPECT_EQ(usage().wakeUps, before) << "flow mode " << mode;
    }
}

} // namespace

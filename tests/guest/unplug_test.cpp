// A device is pulled out while it is in use, and comes back.
#include <array>
#include <filesystem>
#include <fstream>

#include "guest.h"

using namespace brisolt::test;

namespace {

/// A device that is gone keeps nobody running.
void expectQuiet(Milliseconds time = std::chrono::seconds(1)) {
    const Usage before = usage();
    std::this_thread::sleep_for(time);
    const Usage after = usage();
    EXPECT_LT(after.processor - before.processor, time / 2);
    EXPECT_LT(after.wakeUps - before.wakeUps, static_cast<uint64_t>(time.count()) * 30 / 1000);
}

/// The port of a USB modem that is pulled out in the test and put in again after it.
class Unplug : public testing::Test {
protected:
    void TearDown() override {
        if (ComOpenState(port) == 1)
            expectQuickClose(port);
        plug.plug();
        expectTalk(Port(usbModem), Tty(gadget));
    }
    Gadget plug;
    const Port port{usbModem};
};

TEST_F(Unplug, WhileWriting) {
    ComSetWriteTimeout(port, ~0U); // nobody takes what it writes
    auto writer = std::async(async, [&] {
        while (send(port, letters(1000)) == 1000)
            ;
    });
    EXPECT_TRUE(stillRunning(writer));
    plug.unplug();
    EXPECT_TRUE(finishes(writer)) << "no line, nothing to wait for";
    EXPECT_LE(send(port, "nowhere"), 0);
    expectQuiet();
}

TEST_F(Unplug, WhileALosslessPortHasBytesToSend) {
    ASSERT_EQ(ComHostSetLossless(port, 1), 1);
    while (send(port, letters(1000)) == 1000)
        ;
    EXPECT_GT(ComOutBufStatus(port), 0);
    plug.unplug();
    expectQuiet();
    std::array<char, 100> bytes{};
    auto reader = std::async(async, [&] { return ComReadTimed(port, bytes.data(), 100, 200); });
    expectQuiet();
    EXPECT_EQ(reader.get(), 0);
    EXPECT_EQ(ComCarrier(port), -1);
    EXPECT_EQ(ComSetDTR(port), -2);
    EXPECT_EQ(ComBreak(port), 1);
    EXPECT_EQ(openOn(2, usbModem), -25);
}

TEST(UnplugAdapter, WhileReading) {
    const auto device =
        std::filesystem::canonical("/sys/class/tty/ttyUSB0/device").parent_path().parent_path();
    const auto plug = [&device](bool in) { std::ofstream(device / "authorized") << (in ? 1 : 0); };
    {
        const Port port(adapter);
        std::array<char, 10> bytes{};
        auto reader = std::async(async, [&] { return ComReadTimed(port, bytes.data(), 10, 200); });
        EXPECT_TRUE(stillRunning(reader));
        plug(false);
        expectQuiet();
        EXPECT_EQ(reader.get(), 0);
        expectQuickClose(port);
    }
    plug(true);
    EXPECT_TRUE(eventually([] { return std::filesystem::exists(adapter); }));
    expectTalk(Port(adapter), Tty(adapterFarEnd));
}

} // namespace

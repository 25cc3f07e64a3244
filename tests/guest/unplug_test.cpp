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
    std::future<int32_t> readAside(uint32_t limit) {
        return std::async(async, [this, limit] { return ComReadTimed(port, bytes.data(), 100, limit); });
    }

    Gadget plug;
    const Port port{usbModem};
    std::array<char, 100> bytes{};
};

TEST_F(Unplug, WhileReading) {
    auto reader = readAside(300);
    EXPECT_TRUE(stillRunning(reader));
    plug.unplug();
    expectQuiet();
    ASSERT_TRUE(finishes(reader));
    EXPECT_EQ(reader.get(), 0) << "it reads as an empty line";
    auto endless = std::async(async, [&] { return ComReadBuf(port, bytes.data(), 0, 99, 3000); });
    EXPECT_TRUE(stillRunning(endless));
    expectQuickClose(port);
    ASSERT_TRUE(finishes(endless));
    EXPECT_EQ(endless.get(), -1);
}

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
    auto reader = readAside(200);
    expectQuiet();
    EXPECT_EQ(reader.get(), 0);
}

TEST_F(Unplug, WhileIdle) {
    plug.unplug();
    expectQuiet(std::chrono::seconds(2));
    EXPECT_EQ(ComOpenState(port), 1);
    EXPECT_EQ(ComStatus(port), 0);
    EXPECT_EQ(ComRead(port, bytes.data(), 10), 0);
    EXPECT_LE(send(port, "nowhere"), 0);
    EXPECT_EQ(ComCarrier(port), -1);
    EXPECT_EQ(ComGetCTSStatus(port), 0);
    EXPECT_EQ(ComRing(port), 0);
    EXPECT_EQ(ComSetBaud(port, 1200), 1);
    EXPECT_EQ(ComSetDTR(port), -2);
    EXPECT_EQ(ComFlush(port), 1);
    EXPECT_EQ(ComBreak(port), 1);
    EXPECT_EQ(openOn(2, usbModem), -25);
}

// The old name belongs to the dead device until its port is closed.
TEST_F(Unplug, AndBackBeforeTheClose) {
    const char* const nextName = "/dev/ttyACM1";
    plug.unplug();
    EXPECT_EQ(std::system("modprobe g_serial"), 0);
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(nextName); }));
    expectTalk(Port(nextName, 2), Tty(gadget));
    expectQuiet();
    expectQuickClose(port);
    plug.unplug();
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

// A device is pulled out while it is in use, and comes back.
#include <filesystem>
#include <fstream>
#include <functional>

#include <gtest/gtest.h>

#include "guest.h"

using namespace brisolt::test;

namespace {

void expectTalk(const std::string& path, const std::string& farPath, int32_t number = 1) {
    const Tty far(farPath);
    const Port port(path, number);
    EXPECT_EQ(send(port, "out"), 3);
    EXPECT_EQ(far.read(3), "out");
    far.write("in");
    EXPECT_EQ(receive(port, 2), "in");
}

void expectQuickClose(int32_t port) {
    const auto start = Clock::now();
    EXPECT_EQ(ComClose(port), 1);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(8));
}

/// A device that is gone keeps nobody running.
void expectQuiet(Milliseconds time) {
    const Usage before = usage();
    std::this_thread::sleep_for(time);
    const Usage after = usage();
    EXPECT_LT(after.processor - before.processor, time / 2);
    EXPECT_LT(after.wakeUps - before.wakeUps, static_cast<uint64_t>(time.count()) * 30 / 1000);
}

/// The adapter's plug: what the host does when a device leaves and when it comes.
class AdapterPlug {
public:
    ~AdapterPlug() { in(); }
    void out() { authorize(false); }
    void in() {
        authorize(true);
        EXPECT_TRUE(eventually([] { return std::filesystem::exists(adapter); }));
    }

private:
    void authorize(bool on) { std::ofstream(device_ / "authorized") << (on ? 1 : 0) << std::flush; }
    std::filesystem::path device_ =
        std::filesystem::canonical("/sys/class/tty/ttyUSB0/device").parent_path().parent_path();
};

TEST(Unplug, WhileReading) {
    Gadget plug;
    Port port(usbModem);
    std::array<char, 100> bytes{};
    auto reader = std::async(async, [&] { return ComReadTimed(port, bytes.data(), 100, 300); });
    EXPECT_TRUE(stillRunning(reader));
    plug.unplug();
    expectQuiet(std::chrono::seconds(1));
    ASSERT_TRUE(finishes(reader));
    EXPECT_EQ(reader.get(), 0) << "it reads as an empty line";
    auto endless = std::async(async, [&] { return ComReadBuf(port, bytes.data(), 0, 99, 3000); });
    EXPECT_TRUE(stillRunning(endless));
    expectQuickClose(port);
    ASSERT_TRUE(finishes(endless));
    EXPECT_EQ(endless.get(), -1);
    plug.plug();
    expectTalk(usbModem, gadget);
}

TEST(Unplug, WhileWriting) {
    Gadget plug;
    const Port port(usbModem); // nobody takes what it writes
    ComSetWriteTimeout(port, ~0U);
    auto writer = std::async(async, [&] {
        while (send(port, pattern(1000)) == 1000)
            ;
    });
    EXPECT_TRUE(stillRunning(writer));
    std::this_thread::sleep_for(soon);
    plug.unplug();
    EXPECT_TRUE(finishes(writer)) << "no line, nothing to wait for";
    EXPECT_LE(send(port, "nowhere"), 0);
    expectQuiet(std::chrono::seconds(1));
    expectQuickClose(port);
    plug.plug();
    expectTalk(usbModem, gadget);
}

TEST(Unplug, WhileALosslessPortHasBytesToSend) {
    Gadget plug;
    const Port port(usbModem);
    ASSERT_EQ(ComHostSetLossless(port, 1), 1);
    while (send(port, pattern(1000)) == 1000)
        ;
    EXPECT_GT(ComOutBufStatus(port), 0);
    plug.unplug();
    expectQuiet(std::chrono::seconds(1));
    std::array<char, 10> bytes{};
    auto reader = std::async(async, [&] { return ComReadTimed(port, bytes.data(), 10, 200); });
    expectQuiet(std::chrono::seconds(1));
    EXPECT_EQ(reader.get(), 0);
    expectQuickClose(port);
    plug.plug();
    expectTalk(usbModem, gadget);
}

TEST(Unplug, WhileIdle) {
    Gadget plug;
    const Port port(usbModem);
    plug.unplug();
    expectQuiet(std::chrono::seconds(2));
    std::array<char, 10> bytes{};
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
    expectQuickClose(port);
    EXPECT_EQ(ComOpen("COM", port, 9600, 8, 1, 1, 4096, 4096), -25);
    plug.plug();
    expectTalk(usbModem, gadget);
}

// The old name belongs to the dead device until its port is closed.
TEST(Unplug, AndBackBeforeTheClose) {
    Gadget plug;
    const char* const nextName = "/dev/ttyACM1";
    {
        const Port port(usbModem);
        plug.unplug();
        EXPECT_EQ(std::system("modprobe g_serial"), 0);
        EXPECT_TRUE(eventually([&] { return std::filesystem::exists(nextName); }));
        expectTalk(nextName, gadget, 2);
        expectQuiet(std::chrono::seconds(1));
        expectQuickClose(port);
    }
    plug.unplug();
    plug.plug();
    expectTalk(usbModem, gadget);
}

TEST(Unplug, OfAnAdapter) {
    AdapterPlug plug;
    std::array<char, 10> bytes{};
    for (const bool reading : {false, true}) {
        SCOPED_TRACE(reading ? "while reading" : "while idle");
        const Port port(adapter);
        std::future<int32_t> reader;
        if (reading)
            reader = std::async(async, [&] { return ComReadTimed(port, bytes.data(), 10, 200); });
        std::this_thread::sleep_for(soon);
        plug.out();
        expectQuiet(std::chrono::seconds(1));
        if (reading) {
            EXPECT_EQ(reader.get(), 0);
        }
        expectQuickClose(port);
        plug.in();
        expectTalk(adapter, adapterFarEnd);
    }
}

} // namespace

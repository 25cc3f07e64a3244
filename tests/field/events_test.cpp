// Lines and errors that tell, and a device that goes and comes back.
#include <csignal>

#include "device/device.h"
#include "field/field_port.h"
#include "support/files.h"
#include "support/peer_process.h"
#include "support/pty.h"
#include "support/scripted_driver.h"

namespace brisolt::test {
namespace {

TEST(FieldEvents, NothingBetweenTwoWaitsOrMessagesIsMissed) {
    constexpr uint32_t asked = COM_HOST_EVENT_CTS | COM_HOST_EVENT_DSR;
    const FieldPort near("null-modem:events"), far("null-modem:events");
    ComHostCounters seen = near.counters();
    ComClearRTS(far.number);
    ComSetRTS(far.number); // the line is as it was, but it has changed
    EXPECT_EQ(ComHostWaitEvent(near.number, asked, &seen, 0), COM_HOST_EVENT_CTS);
    EXPECT_EQ(ComHostWaitEvent(near.number, asked, &seen, 20), 0);
    std::thread later([&far] {
        std::this_thread::sleep_for(50ms);
        ComClearDTR(far.number);
    });
    EXPECT_NE(ComHostWaitEvent(near.number, COM_HOST_EVENT_CARRIER, &seen, -1), 0);
    later.join();
    ComSetDTR(far.number);
    ComSetBreak_ON(far.number);
    EXPECT_EQ(ComHostWaitEvent(near.number, COM_HOST_EVENT_BREAK, &seen, 5000), COM_HOST_EVENT_BREAK);
    for (const uint32_t none : {0, 1})
        EXPECT_EQ(ComHostWaitEvent(near.number, none, &seen, 0), -1);
    seen.size = 8;
    EXPECT_EQ(ComHostWaitEvent(near.number, COM_HOST_EVENT_CTS, &seen, 0), -1);

    // A message carries the events of all that wait.
    EXPECT_EQ(ComHostSetEventMessage(near.number, asked, 0, 1), -1) << "no such thread";
    ASSERT_EQ(ComHostSetEventMessage(near.number, asked, 0, ComHostThreadId()), 1);
    ComClearRTS(far.number);
    ComClearDTR(far.number);
    ComHostMessage message{};
    ASSERT_EQ(ComHostGetMessage(&message, 5000), 1);
    EXPECT_EQ(message.message, static_cast<uint32_t>(COM_HOST_MESSAGE_EVENT));
    EXPECT_EQ(message.first, asked);
    EXPECT_EQ(message.second, near.number);
    EXPECT_EQ(ComHostGetMessage(&message, 0), 0);
    EXPECT_EQ(ComHostSetEventMessage(near.number, 0, 0, 0), 1);
    ComSetRTS(far.number);
    EXPECT_EQ(ComHostGetMessage(&message, 0), 0);
}

/// A device with a name that stays while its terminal is another each time. It is plugged.
struct Socket {
    Socket() { plug(); }
    TempDir folder;
    std::optional<Pty> plugged;
    std::string path() const { return folder.file("device"); }
    void plug() {
        plugged.emplace();
        const std::string fresh = folder.file("fresh");
        std::filesystem::create_symlink(plugged->slavePath(), fresh);
        std::filesystem::rename(fresh, path());
    }
    void pull() {
        std::filesystem::remove(path());
        plugged.reset();
    }
};

TEST(FieldKept, WhatIsQueuedWhileItIsAwayIsSentWhenItIsBack) {
    Socket socket;
    const FieldPort port(socket.path() + "?keep=yes", 19200);
    ComHostCounters seen = port.counters();
    EXPECT_EQ(ComHostWaitEvent(port.number, COM_HOST_EVENT_CTS | COM_HOST_EVENT_ERROR, &seen, 5000), -4)
        << "it cannot tell of them";
    EXPECT_EQ(ComHostWaitEvent(port.number, COM_HOST_EVENT_CTS | COM_HOST_EVENT_GONE, &seen, 10), 0);
    socket.plugged->write("before");
    ASSERT_TRUE(eventually([&] { return ComStatus(port.number) == 6; }));
    socket.pull();
    ASSERT_EQ(ComHostWaitEvent(port.number, COM_HOST_EVENT_GONE, &seen, -1), COM_HOST_EVENT_GONE);
    EXPECT_EQ(ComHostGetPortState(port.number), COM_HOST_DEVICE_SOUGHT);
    EXPECT_EQ(port.read(6), "before");
    EXPECT_EQ(port.read(1, 20), "") << "the wait goes on until its time is over";
    EXPECT_EQ(port.write("queued", 100), 6);
    EXPECT_EQ(ComSetBaud(port.number, 38400), 1);
    socket.plug();
    ASSERT_EQ(ComHostWaitEvent(port.number, COM_HOST_EVENT_BACK, &seen, -1), COM_HOST_EVENT_BACK);
    EXPECT_EQ(socket.plugged->read(6, 20s), "queued");
    ComHostLineState line{};
    line.size = sizeof line;
    EXPECT_EQ(ComHostGetLine(port.number, &line), 1);
    EXPECT_EQ(line.baudRate, 38400U);
    socket.plugged->write("after");
    EXPECT_EQ(port.read(5), "after");
}

TEST(FieldKept, ADeviceThatIsBackButBusyIsTakenWhenItComesFree) {
    Socket socket;
    Device device;
    const int32_t handle = ComHostOpenDevice((socket.path() + "?keep=yes").c_str());
    ASSERT_EQ(device.adopt(handle), 1) << errorTextNow();
    const auto comesTo = [&device](int32_t state) {
        return eventually([&] {
            char byte = 0;
            device.read(&byte, 1); // whoever looks finds out
            return device.state() == state;
        });
    };
    socket.pull();
    ASSERT_TRUE(comesTo(COM_HOST_DEVICE_SOUGHT));
    const Pty other;
    const int32_t others = ComHostOpenDevice(other.slavePath().c_str());
    EXPECT_GE(others, 0) << "the number of what has gone: " << errorTextNow();
    socket.plugged.emplace();
    PeerProcess holder(BRISOLT_TEST_PEER, {"hold", socket.plugged->slavePath()});
    ASSERT_EQ(holder.readLine(), "held");
    std::filesystem::create_symlink(socket.plugged->slavePath(), socket.path());
    std::this_thread::sleep_for(1s); // the pauses have grown
    EXPECT_EQ(device.state(), COM_HOST_DEVICE_SOUGHT);
    holder.kill(SIGKILL);
    EXPECT_TRUE(comesTo(COM_HOST_DEVICE_THERE));
    device.close();
    EXPECT_EQ(ComHostCloseDevice(handle), 1);
    EXPECT_EQ(ComHostCloseDevice(others), 1);
}

TEST(FieldKept, WhatADeviceLeftBehindIsReadAndThenItIsMissed) {
    ScriptedDriver driver("leaving");
    const FieldPort port(driver.path() + "?keep=yes");
    driver.refuse(ScriptedDriver::Call::open);
    driver.go();
    driver.feed("left");
    EXPECT_TRUE(eventually([&] { return ComHostGetPortState(port.number) == COM_HOST_DEVICE_SOUGHT; }));
    EXPECT_EQ(port.read(4), "left");
}

TEST(FieldKept, AFlappingDeviceLeavesNothingBehind) {
    Socket socket;
    const auto descriptors = [] { return entriesOf("/proc/self/fd"); };
    const FieldPort port(socket.path() + "?keep=yes");
    long before = 0;
    for (const int times : {1, 40}) { // what is made once is made by the first
        before = descriptors();
        for (int i = 0; i < times; ++i) {
            socket.pull();
            std::this_thread::sleep_for(10ms);
            socket.plug();
            std::this_thread::sleep_for(10ms);
        }
        ASSERT_TRUE(eventually([&] {
            return ComHostGetPortState(port.number) == COM_HOST_DEVICE_THERE && socket.plugged->connected();
        }));
    }
    socket.plugged->write("x");
    EXPECT_EQ(port.read(1), "x");
    EXPECT_TRUE(eventually([&] { return descriptors() == before; })) << descriptors() - before;
}

TEST(FieldKept, NotKeptOrNotInTimeItIsGoneForGood) {
    const FastClock fast;
    for (const char* option : {"", "?keep=1"}) {
        Socket socket;
        const FieldPort port(socket.path() + option);
        std::thread puller([&socket] {
            std::this_thread::sleep_for(50ms);
            socket.pull();
        });
        EXPECT_EQ(port.read(1, -1), "");
        puller.join();
        char byte = 0;
        EXPECT_EQ(ComHostRead(port.number, &byte, 1, -1), -2) << option;
        EXPECT_EQ(port.write("x"), -2) << option;
        EXPECT_EQ(ComHostDrain(port.number, -1), -2) << option;
        EXPECT_EQ(ComHostGetPortState(port.number), COM_HOST_DEVICE_GONE) << option;
    }
}

} // namespace
} // namespace brisolt::test

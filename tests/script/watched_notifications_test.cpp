// Notifications of a character or a string among the unread bytes, and the replacement of a byte.
#include <array>
#include <atomic>
#include <map>

#include "stream/open_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 51;

std::atomic<int32_t> calls[3];
template <int Kind> int32_t counted(int32_t port) {
    calls[Kind] += port == number ? 1 : 1000;
    return 0;
}

/// What this thread's queue holds, by message: how many, all of them with the port's number.
std::map<uint32_t, int> takeMessages() {
    std::map<uint32_t, int> counts;
    ComHostMessage message{};
    while (ComHostGetMessage(&message, 50) == 1) {
        EXPECT_EQ(message.first, 0U);
        EXPECT_EQ(message.second, number);
        ++counts[message.message];
    }
    return counts;
}

struct Watched {
    Pty far;
    OpenPort port{number, far.slavePath()};
    Watched() {
        ComSetBackgroundTimeout(port, 0);
        for (auto& count : calls)
            count = 0;
    }
    /// Arrives in one round.
    void arrive(const std::string& bytes) {
        const int32_t before = ComStatus(number);
        far.write(bytes);
        ASSERT_TRUE(
            eventually([&] { return ComStatus(number) == before + static_cast<int32_t>(bytes.size()); }));
    }
};

TEST(WatchedNotifications, ThreadsWindowsAndFunctionsAreToldOfEachKind) {
    Watched line;
    static std::map<uint32_t, int> windowSaw;
    windowSaw.clear();
    const int32_t window =
        ComHostCreateWindow([](void*, int32_t, uint32_t message, uintptr_t,
                               intptr_t second) { windowSaw[message] += second == number ? 1 : 1000; },
                            nullptr);
    const uint32_t thread = ComHostThreadId();
    EXPECT_EQ(ComSetNotifyMessageOnChar(number, window, '#'), 1);
    EXPECT_EQ(ComSetNotifyThreadMessageOnChar(number, thread, '\r'), 1) << "the window's now, too";
    EXPECT_EQ(ComSetNotifyMessageOnCharCallBackFunc(number, counted<1>, 0xF0), 1) << "and again";
    EXPECT_EQ(ComSetNotifyMessageOnString(number, window, "none"), 1);
    EXPECT_EQ(ComSetNotifyThreadMessageOnString(number, thread, "none"), 1);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(number, counted<2>, "OK?"), 1);
    EXPECT_EQ(ComSetNotifyMessageOnAnyCharCallBackFunc(number, counted<0>), 1);

    line.far.write("xO\r#none");
    ASSERT_TRUE(eventually([] { return calls[0] > 0; }));
    EXPECT_EQ(takeMessages(), (std::map<uint32_t, int>{})) << "none of what is watched for";
    line.far.write("\xF0");
    ASSERT_TRUE(eventually([] { return calls[1] > 0; }));
    EXPECT_EQ(calls[2], 0);
    line.far.write("OKz");
    ASSERT_TRUE(eventually([] { return calls[2] > 0; }));
    const auto told = [&] {
        ComHostMessage message{};
        while (ComHostGetMessage(&message, 50) == 1)
            if (message.window != 0)
                ComHostDispatchMessage(&message);
    };
    told();
    EXPECT_GE(windowSaw[0x800B], 1);
    EXPECT_GE(windowSaw[0x800C], 1);

    const int32_t before = calls[2];
    line.far.write("-");
    EXPECT_TRUE(eventually([&] { return calls[2] > before; })) << "it is unread still";
    EXPECT_EQ(ComHostDestroyWindow(window), 1);
}

TEST(WatchedNotifications, AThreadHearsOfACharacterAsLongAsItIsUnread) {
    Watched line;
    EXPECT_EQ(ComSetNotifyThreadMessageOnChar(number, ComHostThreadId(), '\r'), 1);
    line.far.write("ab\r");
    EXPECT_TRUE(eventually([] { return takeMessages()[0x800B] > 0; }));
    line.far.write("c");
    EXPECT_TRUE(eventually([] { return takeMessages()[0x800B] > 0; }));
    EXPECT_EQ(readTimed(number, 4), "ab\rc");
    line.far.write("d");
    EXPECT_EQ(readTimed(number, 1), "d");
    EXPECT_EQ(takeMessages()[0x800B], 0);
}

TEST(WatchedNotifications, StringsAreCutRefusedAndSwitchedOff) {
    const Watched line;
    const std::string longest(400, 'p');
    PortRecord& record = line.port.record();
    EXPECT_EQ(ComSetNotifyMessageOnString(number, 7, longest.c_str()), 1);
    EXPECT_EQ(std::string(record.notifyString), longest.substr(0, 299));
    EXPECT_EQ(ComSetNotifyThreadMessageOnString(number, 9, ""), -2);
    EXPECT_EQ(record.onStringThread, 0U) << "a refused call changes nothing";
    EXPECT_EQ(record.onStringWindow, 7);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(number, counted<2>, "x"), -2);
    EXPECT_EQ(record.onStringCallback.load(), nullptr);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(number, counted<2>, "xy"), 1);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(number, nullptr, nullptr), -2);
    EXPECT_EQ(record.onStringCallback.load(), nullptr) << "but 0 switches off";
    EXPECT_EQ(ComSetNotifyMessageOnString(number, 7, ""), 1);
    EXPECT_EQ(record.onStringWindow, 0);
    EXPECT_EQ(std::string(record.notifyString), "xy");
    for (const int32_t port : {0, 52, 257}) {
        EXPECT_EQ(ComSetNotifyMessageOnString(port, 1, "a"), -1);
        EXPECT_EQ(ComSetNotifyThreadMessageOnChar(port, 1, 'a'), -1);
        EXPECT_EQ(ComReplace_Incoming_Char(port, 1, 0, 0), -1);
    }
}

TEST(Replacement, AReceivedByteBecomesAnother) {
    Watched line;
    EXPECT_EQ(ComReplace_Incoming_Char(number, 1, 0x00, 0x20), 1);
    line.far.write(std::string("a\0b\0", 4));
    EXPECT_EQ(readTimed(number, 4), "a b ");
    EXPECT_EQ(ComReplace_Incoming_Char(number, 0, 0x00, 0x20), 1);
    line.far.write(std::string("\0c", 2));
    EXPECT_EQ(readTimed(number, 2), std::string("\0c", 2));
}

} // namespace
} // namespace brisolt::test

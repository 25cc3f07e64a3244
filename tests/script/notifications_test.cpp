// Being told of received data: who hears what in which order, and what a function may do.
#include <atomic>
#include <future>

#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 13;
constexpr uint32_t anyChar = 0x800A;

std::atomic<int32_t> calls{0};
std::promise<int32_t> told;

/// Tells the test's thread in its queue, so that the functions' place among the messages shows.
std::atomic<uint32_t> testThread{0};
template <char Kind> int32_t functionOf(int32_t number) {
    return ComHostPostThreadMessage(testThread, 0x0400 + Kind, 0, number);
}

struct Notifications : testing::Test {
    Notifications() { calls = 0, told = {}; }
    /// Lets the bytes reach the device before the next round, so that one round takes them all.
    void arriveInOneRound(const std::string& bytes) {
        HeldLock noRounds(open.inside());
        far.write(bytes);
        ASSERT_TRUE(eventually(
            [&] { return open.inside().device.status(COM_HOST_WANT_IN).inQueue == bytes.size(); }));
    }
    /// The thread has fetched them. It tells of them after that, when it no longer holds the lock.
    void awaitRound(int32_t count) {
        ASSERT_TRUE(eventually([&] {
            HeldLock lock(open.inside());
            return open.inside().rx.count() == count;
        }));
    }
    /// This thread is told just that: function, window or thread, and the kind.
    void expectHeard(const std::string& expected) {
        std::string heard;
        ComHostMessage message{};
        while (ComHostGetMessage(&message, heard.size() < expected.size() ? 20000 : 100) == 1) {
            EXPECT_EQ(message.first, 0U);
            EXPECT_EQ(message.second, port);
            const bool function = message.message < anyChar;
            heard += function ? "f" : message.window != 0 ? "w" : "t";
            heard += static_cast<char>(function ? message.message - 0x0400 : message.message - anyChar + 'A');
            heard += ' ';
        }
        EXPECT_EQ(heard, expected);
    }
    Pty far;
    OpenPort open{port, far.slavePath()};
};

TEST_F(Notifications, AllNineAreToldInTheirOrder) {
    const uint32_t thread = ComHostThreadId();
    testThread = thread;
    const int32_t window = ComHostCreateWindow([](void*, int32_t, uint32_t, uintptr_t, intptr_t) {}, nullptr);
    EXPECT_EQ(ComSetNotifyThreadMessageOnString(port, thread, "OK?"), 1);
    EXPECT_EQ(ComSetNotifyMessageOnString(port, window, "OK?"), 1);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(port, functionOf<'C'>, "OK?"), 1);
    EXPECT_EQ(ComSetNotifyThreadMessageOnChar(port, thread, '#'), 1);
    EXPECT_EQ(ComSetNotifyMessageOnChar(port, window, '#'), 1);
    EXPECT_EQ(ComSetNotifyMessageOnCharCallBackFunc(port, functionOf<'B'>, 0xF0), 1) << "now theirs, too";
    EXPECT_EQ(ComSetNotifyThreadMessageAnyChar(port, thread), 1);
    EXPECT_EQ(ComSetNotifyMessageAnyChar(port, window), 1);
    EXPECT_EQ(ComSetNotifyMessageOnAnyCharCallBackFunc(port, functionOf<'A'>), 1);
    const std::pair<const char*, const char*> rounds[] = {
        {"ok#O", "fA wA tA "}, // of any data only, once for all of a round
        {"K", "fA wA tA "},    // any byte is one byte, and there is none yet
        {"z", "fA wA tA fC wC tC "},
        {"\xF0", "fA wA tA fB wB tB fC wC tC "},
        {"-", "fA wA tA fB wB tB fC wC tC "}}; // what stays unread is told of again
    for (const auto& [bytes, heard] : rounds) {
        arriveInOneRound(bytes);
        expectHeard(heard);
    }
    readUpTo(port, 100);
    ComHostDestroyWindow(window); // a receiver that has gone is no reason to stop
    EXPECT_EQ(ComSetNotifyThreadMessageAnyChar(port, 0), 1);
    arriveInOneRound("\xF0OK!");
    expectHeard("fA fB tB fC tC ");
}

TEST_F(Notifications, SettersCutRefuseAndSwitchOff) {
    const std::string longest(400, 'p');
    const PortRecord& record = open.record();
    EXPECT_EQ(ComSetNotifyMessageOnString(port, 7, longest.c_str()), 1);
    EXPECT_EQ(open.inside().workArea->notifyString, longest.substr(0, 299));
    EXPECT_EQ(ComSetNotifyThreadMessageOnString(port, 9, ""), -2);
    EXPECT_EQ(record.onStringThread, 0U) << "a refused call changes nothing";
    EXPECT_EQ(record.onStringWindow, 7);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(port, functionOf<'C'>, "xy"), 1);
    EXPECT_EQ(ComSetNotifyMessageOnStringCallBackFunc(port, nullptr, nullptr), -2);
    EXPECT_EQ(record.onStringCallback.load(), nullptr) << "but null switches off";
    EXPECT_EQ(ComSetNotifyMessageOnString(port, 7, ""), 1);
    EXPECT_EQ(record.onStringWindow, 0);
}

TEST_F(Notifications, OnlyWhatARoundOrAWaitingReaderFetchesIsToldAndAllOfItIsReplaced) {
    const std::string nul(1, '\0');
    EXPECT_EQ(ComReplace_Incoming_Char(port, 1, 0x00, 0x20), 1);
    testThread = ComHostThreadId();
    ComSetNotifyMessageOnAnyCharCallBackFunc(
        port, [](int32_t) -> int32_t { return calls += ComHostThreadId() == testThread ? 1000 : 1; });
    arriveInOneRound(std::string(700, '\0'));
    EXPECT_TRUE(eventually([] { return calls == 1; }));
    EXPECT_EQ(readUpTo(port, 700), std::string(700, ' '));
    auto reading = std::async(std::launch::async, [] { return readTimed(port, 1); });
    far.write(nul);
    EXPECT_EQ(reading.get(), " ");
    EXPECT_TRUE(eventually([] { return calls == 2; }));
    ComSetBackgroundTimeout(port, 100'000); // the next round is far away
    far.write(nul);
    EXPECT_TRUE(eventually([] { return ComStatus(port) == 1; }));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(calls, 2) << "a status call on an empty ring helps itself";
    EXPECT_EQ(ComReplace_Incoming_Char(port, 0, 0x00, 0x20), 1);
    far.write(nul);
    EXPECT_EQ(readTimed(port, 2), " " + nul);
}

// Who was told once and has not read may have to be reminded: the device holds more.
TEST_F(Notifications, AFullRingIsToldOfAgain) {
    ComSetNotifyMessageOnAnyCharCallBackFunc(port, [](int32_t) { return ++calls; });
    far.write(std::string(3000, 'x'));
    awaitRound(2048);
    const auto used =
        processorTimeOf(CLOCK_PROCESS_CPUTIME_ID, [] { EXPECT_TRUE(eventually([] { return calls > 6; })); });
    EXPECT_LT(used, 300ms);
    EXPECT_EQ(readUpTo(port, 2048).size(), 2048U);
    awaitRound(952);
    sleepHalfASecond();
    const int32_t before = calls;
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(calls, before) << "a ring with room has no more to tell";
}

// A function runs on the port's own thread, inside its round. At a pace of 0 other waits leave the device to the thread, which is the one that waits here.
TEST_F(Notifications, AFunctionMayPeekReadWaitAndWrite) {
    const ComPortFunc function = [](int32_t number) -> int32_t {
        int32_t position = -1;
        if (ComPeekString(number, "q?*", &position) != 1)
            return 0;
        std::string got = readUpTo(number, 1);
        ComSleepMS(number, 20);
        got += readTimed(number, 6, 500);
        EXPECT_EQ(ComStimulus(number, "more.", "", 100, 10), 1);
        return send(number, got + ComGettestbuffer(number));
    };
    const FastClock clock(5);
    for (uint32_t pace : {50U, 0U, 10000U}) {
        ComSetBackgroundTimeout(port, pace);
        EXPECT_EQ(ComSetNotifyMessageOnAnyCharCallBackFunc(port, function), 1);
        for (const char* piece : {"q", "uest", "ion", ", and", " more."}) {
            far.write(piece);
            std::this_thread::sleep_for(50ms);
        }
        EXPECT_EQ(far.read(19, 20s), "question, and more.") << pace;
        ComSetNotifyMessageOnAnyCharCallBackFunc(port, nullptr);
    }
}

TEST_F(Notifications, ACloseEndsTheWaitOfAFunction) {
    ComSetNotifyMessageOnAnyCharCallBackFunc(port, [](int32_t number) {
        calls = 1;
        told.set_value(ComStimulus(number, "never", "", 100, 1000));
        return 1;
    });
    far.write("x");
    ASSERT_TRUE(eventually([] { return calls == 1; }));
    auto closing = std::async(std::launch::async, [this] { return open.close(); });
    EXPECT_EQ(told.get_future().get(), -1);
    EXPECT_EQ(closing.get(), 1);
}

} // namespace
} // namespace brisolt::test

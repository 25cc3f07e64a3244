// Calls on threads of their own, and what others do to them meanwhile.
#include <atomic>

#include "platform/thread.h"
#include "telephony/two_modems.h"

namespace brisolt::test {
namespace {

struct ConnectThread : TwoModems {
    void TearDown() override {
        disconnect();
        EXPECT_TRUE(eventually([&] { return service.openLines() == 0 && service.liveCalls() == 0; }));
    }
    static int32_t start(const char* name = "Modem A", const char* number = "5551") {
        return ComTAPI_Connect_Thread(name, number, "T");
    }
    static int32_t outcome(const char* name = "Modem A") {
        eventually([&] { return ComTAPI_Connect_Status(name) != 101; });
        return ComTAPI_Connect_Status(name);
    }
};

TEST_F(ConnectThread, ItsOutcomeIsPolled) {
    EXPECT_EQ(ComTAPI_Connect_Status("Modem A"), 0);
    thread::failStarts(1);
    EXPECT_EQ(start(), -30);
    EXPECT_EQ(ComTAPI_Connect_Status("Modem A"), 0);
    const std::string number(60, '5'); // more than the entry keeps, and dialled in full all the same
    EXPECT_EQ(start("Modem A", number.c_str()), 1);
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(outcome(), 100);
    EXPECT_EQ(service.seen(service.dialled).back(), "T" + number);
    EXPECT_EQ(ComOpenState(130), 1);
    disconnect();
    EXPECT_EQ(ComTAPI_Connect_Status("Modem A"), 100);
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::busy); };
    EXPECT_EQ(start(), 1);
    EXPECT_EQ(outcome(), -24);
    expectLogged({"TAPI Thread - CONNECTED", "TAPI Thread - Failed: -24"});
}

TEST_F(ConnectThread, AFailureAtOnceIsNotOverwritten) {
    service.answer("lineOpenA", {result::lineInUse});
    EXPECT_EQ(start(), -4);
    for (int32_t i = 0; i < 20; ++i) {
        service.answer("lineOpenA", {0, result::lineInUse}); // of which the second is the thread's
        ASSERT_EQ(start(), 1);
        ASSERT_EQ(outcome(), -4);
    }
}

TEST_F(ConnectThread, ACancelIsNotLostHoweverEarlyItComes) {
    service.onMakeCall = [](uint32_t) {};
    for (int32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(start(), 1);
        ASSERT_EQ(ComTAPI_Cancel("Modem A"), 1);
        ASSERT_TRUE(eventually([] { return start("Modem A", "x") != -1; })) << "the thread goes on";
        disconnect();
    }
    EXPECT_EQ(log().find("TAPI Thread - Failed"), std::string::npos);
}

TEST_F(ConnectThread, NeitherAnotherDeviceNorAConnectThatWasDisconnectedDisturbs) {
    for (int32_t i = 0; i < 10; ++i) {
        service.onMakeCall = [](uint32_t) {};
        ASSERT_EQ(start(), 1);
        ASSERT_TRUE(eventually([&] { return service.liveCalls() == 1; }));
        ASSERT_EQ(ComTAPI_Disconnect("Modem A"), 1);
        service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected); };
        ASSERT_EQ(connect(), 130);
        ASSERT_EQ(ComTAPI_Disconnect("Modem A"), 1);
        ASSERT_EQ(start("Modem A", "1"), 1);
        ASSERT_EQ(start("Modem B", "2"), 1);
        ASSERT_EQ(outcome("Modem A"), 100);
        ASSERT_EQ(outcome("Modem B"), 100);
        disconnect();
    }
}

TEST_F(ConnectThread, EverybodyAtOnce) {
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> turn{0};
    service.onMakeCall = [&](uint32_t call) {
        constexpr uint32_t ends[] = {callState::busy, callState::connected, callState::dialling};
        service.postState(call, callState::dialling);
        service.postState(call, ends[turn++ % 3]); // a third says nothing more
    };
    auto loop = [&](auto step) {
        return std::thread([&stop, step] {
            while (!stop)
                step();
        });
    };
    auto pause = [](int32_t time) { std::this_thread::sleep_for(std::chrono::milliseconds(time)); };
    std::thread connecting = loop([] { ComTAPI_Connect("Modem B", "2", "P"); });
    std::thread others[] = {
        loop([] { start("Modem A", "1"); }),
        loop(disconnect),
        loop([=] {
            ComTAPI_Cancel("Modem A");
            pause(7);
            ComTAPI_Cancel("Modem B");
        }),
        loop([=] {
            ComServiceMessagePump();
            ComTAPI_Connect_Status("Modem A");
            pause(1);
        }),
    };
    pause(2000);
    stop = true;
    for (std::thread& thread : others)
        thread.join();
    ComTAPI_Cancel("Modem B"); // one that is begun after the last disconnect may wait for a silent modem
    connecting.join();
    TearDown();
    // What the service still had to say about those calls would be taken for a word about the next.
    for (int quiet = 0; quiet < 100; ++quiet) {
        ComServiceMessagePump();
        pause(5);
    }
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected); };
    EXPECT_EQ(connect(), 130);
    EXPECT_EQ(ComTAPI_Connect("Modem B", "2", "T"), 131);
}

} // namespace
} // namespace brisolt::test

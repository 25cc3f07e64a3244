// Calls on threads of their own, and what others do to them meanwhile.
#include <atomic>

#include <gtest/gtest.h>

#include "platform/thread.h"
#include "telephony/scripted_service.h"

namespace brisolt::test {
namespace {

namespace result = service::result;
namespace callState = service::callState;

struct ConnectThread : testing::Test {
    void SetUp() override { ASSERT_EQ(telephony.initialise(), 2); }
    void TearDown() override { // before the service goes
        for (const char* name : {"Modem A", "Modem B"})
            ComTAPI_Disconnect(name);
        EXPECT_TRUE(eventually([&] { return service.openLines() == 0 && service.liveCalls() == 0; }));
    }

    static int32_t start(const char* name = "Modem A", const char* number = "5551") {
        return ComTAPI_Connect_Thread(name, number, "T");
    }
    static int32_t outcome(const char* name = "Modem A") {
        eventually([&] { return ComTAPI_Connect_Status(name) != 101; });
        return ComTAPI_Connect_Status(name);
    }

    Telephony telephony;
    ScriptedService& service = telephony.service;
};

TEST_F(ConnectThread, ItsOutcomeIsPolled) {
    EXPECT_EQ(ComTAPI_Connect_Status("Modem A"), 0);
    const std::string number(60, '5'); // more than the entry keeps, and dialled in full all the same
    EXPECT_EQ(start("Modem A", number.c_str()), 1);
    EXPECT_EQ(start(), -1);
    EXPECT_EQ(outcome(), 100);
    EXPECT_EQ(service.dialled().back(), "T" + number);
    EXPECT_EQ(ComOpenState(130), 1);
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    EXPECT_EQ(ComTAPI_Connect_Status("Modem A"), 100);

    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::busy); };
    EXPECT_EQ(start(), 1);
    EXPECT_EQ(outcome(), -24);
    EXPECT_EQ(telephony.logged("TAPI Thread - Failed: -24"), 1);
}

TEST_F(ConnectThread, AFailureAtOnceIsNotOverwritten) {
    for (int32_t i = 0; i < 20; ++i) {
        service.answer("lineOpenA",
                       {0, result::lineInUse}); // the caller's check passes, the thread's does not
        ASSERT_EQ(start(), 1);
        ASSERT_EQ(outcome(), -4);
    }
}

TEST_F(ConnectThread, StartsThatFail) {
    service.answer("lineOpenA", {result::lineInUse});
    EXPECT_EQ(start(), -4);
    thread::failStarts(1);
    EXPECT_EQ(start(), -30);
    EXPECT_EQ(ComTAPI_Connect_Status("Modem A"), 0);
    EXPECT_EQ(start(), 1);
    EXPECT_EQ(outcome(), 100);
}

TEST_F(ConnectThread, ACancelIsNotLostHoweverEarlyItComes) {
    service.onMakeCall = [](uint32_t) {};
    for (int32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(start(), 1);
        ASSERT_EQ(ComTAPI_Cancel("Modem A"), 1);
        ASSERT_TRUE(eventually([] { return start("Modem A", "x") != -1; })) << "the thread goes on";
        ComTAPI_Disconnect("Modem A");
    }
    EXPECT_EQ(telephony.log().find("TAPI Thread - Failed"), std::string::npos);
}

TEST_F(ConnectThread, ADisconnectedConnectLeavesTheNextOneAlone) {
    for (int32_t i = 0; i < 10; ++i) {
        service.onMakeCall = [](uint32_t) {};
        ASSERT_EQ(start(), 1);
        ASSERT_TRUE(eventually([&] { return service.liveCalls() == 1; }));
        ASSERT_EQ(ComTAPI_Disconnect("Modem A"), 1);
        service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected); };
        ASSERT_EQ(ComTAPI_Connect("Modem A", "2", "T"), 130);
        ASSERT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    }
}

TEST_F(ConnectThread, TwoDevicesAtOnceDoNotDisturbEachOther) {
    for (int32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(start("Modem A", "1"), 1);
        ASSERT_EQ(start("Modem B", "2"), 1);
        ASSERT_EQ(outcome("Modem A"), 100);
        ASSERT_EQ(outcome("Modem B"), 100);
        send(130, "A");
        send(131, "B");
        ASSERT_EQ(service.lineOf(0).read(1), "A");
        ASSERT_EQ(service.lineOf(1).read(1), "B");
        ComTAPI_Disconnect("Modem A");
        ComTAPI_Disconnect("Modem B");
    }
}

TEST_F(ConnectThread, EverybodyAtOnce) {
    std::atomic<bool> stop{false};
    std::atomic<uint32_t> turn{0};
    service.onMakeCall = [&](uint32_t call) {
        service.postState(call, callState::dialling);
        switch (turn++ % 4) {
        case 0: service.postState(call, callState::busy); break;
        case 1: break; // silent
        default: service.postState(call, callState::connected); break;
        }
    };
    auto loop = [&](auto step) {
        return std::thread([&stop, step] {
            while (!stop)
                step();
        });
    };
    std::thread threads[] = {
        loop([] { start("Modem A", "1"); }),
        loop([] { ComTAPI_Connect("Modem B", "2", "P"); }),
        loop([] {
            ComTAPI_Cancel("Modem A");
            std::this_thread::sleep_for(std::chrono::milliseconds(7));
            ComTAPI_Cancel("Modem B");
        }),
        loop([] {
            ComTAPI_Disconnect("Modem A");
            ComTAPI_Disconnect("Modem B");
        }),
        loop([] {
            ComServiceMessagePump();
            ComTAPI_Connect_Status("Modem A");
            char name[75];
            ComTAPI_GetModemName(1, name);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }),
    };
    std::this_thread::sleep_for(std::chrono::seconds(2));
    stop = true;
    // A connect that is begun after the last disconnect may wait for a silent modem.
    std::thread& second = threads[1];
    for (std::thread& thread : threads)
        if (&thread != &second)
            thread.join();
    ComTAPI_Cancel("Modem B");
    second.join();

    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected); };
    ComTAPI_Disconnect("Modem A");
    ComTAPI_Disconnect("Modem B");
    EXPECT_TRUE(eventually([&] { return service.openLines() == 0 && service.liveCalls() == 0; }))
        << service.openLines() << " lines, " << service.liveCalls() << " calls are left at the service";
    // What the service still had to say about those calls would be taken for a word about the next.
    for (int quiet = 0; quiet < 100; ++quiet) {
        ComServiceMessagePump();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), 130);
    EXPECT_EQ(ComTAPI_Connect("Modem B", "2", "T"), 131);
}

} // namespace
} // namespace brisolt::test

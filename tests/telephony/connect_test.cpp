// Calls that are placed: from the number to the port, and every way in which that can fail.
#include <atomic>
#include <ostream>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "telephony/scripted_service.h"

namespace brisolt::test {
namespace {

namespace result = service::result;
namespace callState = service::callState;
namespace disconnectedBy = service::disconnectedBy;

struct Connect : testing::Test {
    void SetUp() override { ASSERT_EQ(telephony.initialise(), 2); }

    static int32_t connect(const char* number = "5551", const char* mode = "T") {
        return ComTAPI_Connect("Modem A", number, mode);
    }
    /// Nothing is left at the service, and the device may be tried again.
    void expectIdle() {
        EXPECT_EQ(service.openLines(), 0U);
        EXPECT_EQ(service.liveCalls(), 0U);
        EXPECT_EQ(ComOpenState(130), 0);
    }

    Telephony telephony;
    ScriptedService& service = telephony.service;
};

TEST_F(Connect, TheConnectedCallIsAPort) {
    EXPECT_EQ(connect("5551", "P"), 130);
    EXPECT_EQ(service.dialled(), std::vector<std::string>{"P5551"});
    EXPECT_EQ(service.lastParameters.totalSize, 178U);
    EXPECT_EQ(service.lastParameters.bearerMode, service::bearer::voice);
    EXPECT_EQ(service.lastParameters.mediaMode, 16U);
    EXPECT_EQ(service.lastParameters.callFlags, 2U);
    EXPECT_EQ(service.lastDisplayable, std::string("#\0", 2));

    send(130, "over there");
    EXPECT_EQ(service.lineOf(0).read(10), "over there");
    service.lineOf(0).write("and back");
    EXPECT_EQ(receive(130, 8), "and back");

    EXPECT_EQ(connect(), -1);
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 1), -1);
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    expectIdle();
    EXPECT_TRUE(eventually([&] { return !service.lineOf(0).connected(); })) << "the handle stayed open";
    EXPECT_EQ(telephony.logged("Return CONNECTED Port: 130"), 1);
    EXPECT_EQ(telephony.logged("TAPI lineMakeCall Completed - return: 1 phone number:P5551"), 1);
    EXPECT_EQ(telephony.logged("Line Dropped Response: 1"), 1);
    EXPECT_EQ(telephony.logged("Line Closed.\n"), 1);
    EXPECT_EQ(connect("1", "t"), 130);
    EXPECT_EQ(service.dialled().back(), "T1");
    ComTAPI_Disconnect("Modem A");
}

TEST_F(Connect, NumbersAreDialledInFullOrNotAtAll) {
    const std::string longest(74, '7');
    EXPECT_EQ(connect(longest.c_str(), nullptr), 130);
    EXPECT_EQ(service.dialled().back(), "T" + longest);
    ComTAPI_Disconnect("Modem A");
    const int32_t opened = service.count("lineOpenA");
    EXPECT_EQ(connect((longest + "7").c_str()), -4);
    EXPECT_EQ(connect(nullptr), -4);
    EXPECT_EQ(ComTAPI_Connect_Thread("Modem A", std::string(100000, '7').c_str(), "T"), -4);
    EXPECT_EQ(service.count("lineOpenA"), opened);
    EXPECT_EQ(connect(), 130);
    ComTAPI_Disconnect("Modem A");
}

TEST_F(Connect, UnknownDevices) {
    for (const char* name : {"Modem C", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(ComTAPI_Connect(name, "1", "T"), -3);
        EXPECT_EQ(ComTAPI_Connect_Thread(name, "1", "T"), -3);
        EXPECT_EQ(ComTAPI_Connect_Status(name), -3);
        EXPECT_EQ(ComTAPI_Cancel(name), -3);
        EXPECT_EQ(ComTAPI_Disconnect(name), -3);
        EXPECT_EQ(ComTAPI_AutoAnswer(name, 1), -3);
        EXPECT_EQ(ComTAPI_GetAutoAnswerState(name), -3);
    }
    Com_TAPI_Shutdown();
    EXPECT_EQ(connect(), -6);
    EXPECT_EQ(ComTAPI_Cancel("Modem A"), -6);
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
}

// ---- before the call

TEST_F(Connect, AnUnusableLineMayBeTriedAgain) {
    struct Case {
        const char* entry;
        int32_t result;
    };
    for (Case unusable :
         {Case{"lineNegotiateAPIVersion", result::incompatibleVersion},
          Case{"lineGetDevCapsA", result::operationFailed}, Case{"lineOpenA", result::lineInUse},
          Case{"lineOpenA", 5}, Case{"lineGetAddressStatusA", result::outOfMemory},
          Case{"lineGetIDA", result::code(0x33)}}) {
        service.answer(unusable.entry, {unusable.result});
        EXPECT_EQ(connect(), -4) << unusable.entry;
        expectIdle();
    }
    service.modems[0].lineFeatures = 0;
    EXPECT_EQ(connect(), -4);
    EXPECT_EQ(telephony.logged("LINEFEATURE_MAKECALL not supported "), 1);
    EXPECT_EQ(telephony.logged("Line is already in use by a non-TAPI app or another Service Provider."), 1);
    service.modems[0].lineFeatures = 8;
    EXPECT_EQ(connect(), 130);
    ComTAPI_Disconnect("Modem A");
}

std::atomic<int32_t> boxes;
std::string boxText;

TEST_F(Connect, FaultsOfTheLine) {
    struct Case {
        const char* entry;
        std::vector<int32_t> results; ///< the first is the check's
        int32_t code;
        const char* entryOfLog;
    };
    ComHostSetMessageBox([](const char* text, const char* caption) {
        ++boxes;
        boxText = std::string(text) + "/" + caption;
    });
    const Case cases[] = {
        {"lineNegotiateAPIVersion", {0, result::incompatibleVersion}, -10, "Line Version unsupported"},
        {"lineGetDevCapsA",
         {0, result::operationFailed},
         -11,
         "Error on Requested line - Unable to Use Line"},
        {"lineOpenA",
         {0, result::lineInUse},
         -14,
         "Line is already in use by a non-TAPI application or by another TAPI Service Provider."},
        {"lineOpenA", {0, result::code(0x99)}, -15, "lineOpen unhandled error: -2147483495"},
        {"lineGetAddressStatusA", {0, result::code(0x99)}, -16, "Unable to Use Line"},
        {"lineGetAddressCapsA", {result::code(0x99)}, -11, "lineGetAddressCaps unhandled error: -2147483495"},
        {"lineMakeCallA", {result::code(0x99)}, -19, "Error in lineMakeCall: -2147483495"},
    };
    for (const Case& fault : cases) {
        const int32_t before = telephony.logged(fault.entryOfLog);
        service.answer(fault.entry, fault.results);
        EXPECT_EQ(connect(), fault.code) << fault.entry;
        EXPECT_EQ(telephony.logged(fault.entryOfLog), before + 1) << fault.entryOfLog;
        expectIdle();
    }
    service.modems[0].addressFeatures = 1;
    EXPECT_EQ(connect(), -14);
    EXPECT_EQ(telephony.logged("This line is not available to place a call."), 1);
    EXPECT_EQ(boxes, 0);
}

/// Capabilities that change after the check.
void changeAfterCheck(ScriptedService& service, std::function<void(ScriptedModem&)> change) {
    service.onGetHandle = [] {};
    service.padding = [&service, change, asked = 0](uint32_t) mutable {
        if (++asked == 3) // capabilities, address status, identifier: the check is done
            change(service.modems[0]);
        return 0U;
    };
}

TEST_F(Connect, ALineThatMakesNoCallsIsTheOneMessageBox) {
    ComHostSetMessageBox([](const char* text, const char* caption) {
        ++boxes;
        boxText = std::string(text) + "/" + caption;
    });
    changeAfterCheck(service, [](ScriptedModem& modem) { modem.lineFeatures = 0; });
    EXPECT_EQ(connect(), -13);
    EXPECT_EQ(boxes, 1);
    EXPECT_EQ(boxText, "Error on Requested line/The selected line doesn't support MAKECALL capabilities");
    service.modems[0].lineFeatures = 8;
    changeAfterCheck(service, [](ScriptedModem& modem) { modem.mediaModes = 0; });
    EXPECT_EQ(connect(), -12);
    service.modems[0].mediaModes = 16;
    changeAfterCheck(service, [](ScriptedModem& modem) { modem.bearerModes = 0; });
    EXPECT_EQ(connect(), -5);
    EXPECT_EQ(boxes, 1);
    expectIdle();
}

// ---- the call itself

struct Ending {
    const char* what;
    uint32_t state, detail, privilege;
    int32_t code;
    const char* entry;
};
void PrintTo(const Ending& tested, std::ostream* out) {
    *out << tested.what;
}

class EndedCall : public Connect, public testing::WithParamInterface<Ending> {};

TEST_P(EndedCall, IsNamedByItsFirstCause) {
    const Ending& ending = GetParam();
    service.onMakeCall = [&](uint32_t call) {
        service.postState(call, callState::dialling);
        service.postState(call, ending.state, ending.detail, ending.privilege);
    };
    ComTAPI_SetModemWaitTime(10); // for endings that are no word for the wait
    EXPECT_EQ(connect(), ending.code);
    EXPECT_GE(telephony.logged(ending.entry), 1) << telephony.log();
    expectIdle();
}

INSTANTIATE_TEST_SUITE_P(
    Telephony, EndedCall,
    testing::Values(
        Ending{"Busy", callState::busy, 0, 0, -24, "Line busy"},
        Ending{"Idle", callState::idle, 0, 0, -20, "Line idle"},
        Ending{"SpecialInformation", callState::specialInformation, 0, 0, -20,
               "Special Info, probably couldn't dial number"},
        Ending{"RemoteBusy", callState::disconnected, disconnectedBy::busy, 0, -24, "Disconnected: Busy"},
        Ending{"NoAnswer", callState::disconnected, disconnectedBy::noAnswer, 0, -25,
               "Disconnected: No Answer"},
        Ending{"Unavailable", callState::disconnected, disconnectedBy::unavailable, 0, -26,
               "Disconnected: Unavail"},
        Ending{"NoDialTone", callState::disconnected, disconnectedBy::noDialTone, 0, -27,
               "Disconnected: No Dial Tone"},
        Ending{"Rejected", callState::disconnected, disconnectedBy::reject, 0, -20,
               "Remote Party rejected call"},
        Ending{"OddReason", callState::disconnected, 0x8000, 0, -20,
               "Disconnected: LINECALLSTATE; Bad Reason"},
        Ending{"Monitor", callState::proceeding, 0, 2, -21, "line given monitor privilege; closing"},
        Ending{"Owner", callState::proceeding, 0, 4, -22, "line given owner privilege; closing"},
        Ending{"OddPrivilege", callState::proceeding, 0, 1, -23,
               "Unknown LINECALLPRIVILEGE message: closing"},
        Ending{"OddState", 0x80000, 0, 0, -20, "Unhandled LINECALLSTATE message"}),
    [](const auto& tested) { return tested.param.what; });

TEST_F(Connect, AnOwnersCallStillConnects) {
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected, 0, 4); };
    EXPECT_EQ(connect(), 130);
    ComTAPI_Disconnect("Modem A");
}

TEST_F(Connect, WithoutMessagesFromTheLineTheCallGoesOnButThatIsTheCause) {
    service.answerAlways("lineSetStatusMessages", result::code(0x99));
    EXPECT_EQ(connect(), 130);
    EXPECT_EQ(telephony.logged("lineSetStatusMessages unhandled error: -2147483495"), 1);
    ComTAPI_Disconnect("Modem A");
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::busy); };
    EXPECT_EQ(connect(), -15);
    expectIdle();
}

TEST_F(Connect, ASilentModemIsDroppedWhenItsTimeIsOver) {
    service.onMakeCall = [](uint32_t) {};
    ComTAPI_SetModemWaitTime(10);
    EXPECT_EQ(connect(), -20);
    EXPECT_EQ(telephony.logged("Timed-out waiting for modem to do something"), 1);
    EXPECT_EQ(telephony.logged("WaitForCallState failed"), 1);
    EXPECT_EQ(telephony.logged("Call Dropped."), 1);
    EXPECT_EQ(telephony.logged("Line Closed."), 1);
    expectIdle();
}

TEST_F(Connect, ACallThatTellsNothingAtItsEndDoesNotHoldTheHangUpForever) {
    service.answerAlways("lineDrop", result::code(0x99));
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::proceeding); };
    ComTAPI_SetModemWaitTime(10);
    EXPECT_EQ(connect(), -20);
    EXPECT_EQ(telephony.logged("WAITTIMEDOUT"), 2);
    EXPECT_EQ(telephony.logged("Call timed out waiting for IDLE state."), 1);
    expectIdle();
}

TEST_F(Connect, WhatTheServiceCannotTellOfACallIsStillReleased) {
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::busy); };
    service.answer("lineGetCallStatus", {result::code(0x99), result::code(0x99)});
    EXPECT_EQ(connect(), -24);
    EXPECT_EQ(service.openLines(), 0U);
    EXPECT_EQ(telephony.logged("lineGetCallStatus unhandled error: -2147483495"), 2);
}

TEST_F(Connect, ACancelEndsTheWait) {
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::ringBack); };
    std::thread canceller([&] {
        EXPECT_TRUE(eventually([&] { return telephony.logged("RingBack") == 1; }));
        EXPECT_EQ(ComTAPI_Cancel("Modem A"), 1);
    });
    EXPECT_EQ(connect(), -29);
    canceller.join();
    expectIdle();
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected); };
    EXPECT_EQ(connect(), 130) << "the cancel outlived its connect";
    ComTAPI_Disconnect("Modem A");
}

TEST_F(Connect, ACancelBeforeTheNumberIsDialledSparesTheCall) {
    service.padding = [](uint32_t) { // while the line is looked at
        ComTAPI_Cancel("Modem A");
        return 0U;
    };
    EXPECT_EQ(connect(), -29);
    EXPECT_TRUE(service.dialled().empty());
    expectIdle();
}

TEST_F(Connect, AShutdownEndsTheWait) {
    service.onMakeCall = [](uint32_t) {};
    std::thread closer([&] {
        EXPECT_TRUE(eventually([&] { return service.liveCalls() == 1; }));
        Com_TAPI_Shutdown();
    });
    EXPECT_EQ(connect(), -20);
    closer.join();
}

TEST_F(Connect, AConnectionThatIsToldTwiceOpensOnePort) {
    service.onMakeCall = [&](uint32_t call) {
        service.postState(call, callState::connected);
        service.postState(call, callState::connected);
    };
    EXPECT_EQ(connect(), 130);
    ComServiceMessagePump();
    EXPECT_EQ(ComOpenState(130), 1);
    EXPECT_EQ(service.count("lineGetIDA of a call"), 1);
    EXPECT_EQ(telephony.logged("TAPI_OPENPORT - SUCCESS: 130"), 1);
    ComTAPI_Disconnect("Modem A");
}

TEST_F(Connect, AHandleThatIsNoLineEndsTheCall) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    service.handleOf = [&](uint32_t) { return pipe[0]; };
    EXPECT_EQ(connect(), -20);
    EXPECT_EQ(telephony.logged("Failed to open tapi port: 130 Error Code:-30"), 1);
    expectIdle();
    service.answer("lineGetIDA of a call", {result::code(0x99)});
    EXPECT_EQ(connect(), -5);
    EXPECT_EQ(telephony.logged("lineGetID unhandled error: -2147483495"), 1);
    expectIdle();
    ::close(pipe[0]);
    ::close(pipe[1]);
}

// ---- other threads

/// Tells the library of the call on a thread that is not the caller's.
class Elsewhere {
public:
    Elsewhere(ScriptedService& service, uint32_t state, uint32_t privilege) {
        service.onMakeCall = [&service, state, privilege, this](uint32_t call) {
            join();
            thread_ = std::thread(
                [=, &service] { service.tell(call, service::message::callState, state, 0, privilege); });
        };
    }
    ~Elsewhere() { join(); }

private:
    void join() {
        if (thread_.joinable())
            thread_.join();
    }
    std::thread thread_;
};

TEST_F(Connect, AConnectionHandledElsewhereIsWaitedFor) {
    service.onGetHandle = [] { std::this_thread::sleep_for(std::chrono::milliseconds(40)); };
    Elsewhere elsewhere(service, callState::connected, 0);
    for (int32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(connect(), 130);
        ComTAPI_Disconnect("Modem A");
    }
}

TEST_F(Connect, AFailureHandledElsewhereKeepsItsCause) {
    Elsewhere elsewhere(service, callState::proceeding, 1);
    for (int32_t i = 0; i < 20; ++i)
        EXPECT_EQ(connect(), -23); // known only when the hang-up is over
    expectIdle();
}

TEST_F(Connect, AWordAboutACallThatNobodyKnowsYetIsKeptForIt) {
    ASSERT_EQ(ComTAPI_AutoAnswer("Modem A", 1),
              1); // the first line that waits for a call, but not for this one
    std::thread other;
    service.onMakeCall = [&](uint32_t call) { // the request is still under way
        other =
            std::thread([=, this] { service.tell(call, service::message::callState, callState::connected); });
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    EXPECT_EQ(ComTAPI_Connect("Modem B", "2", "T"), 131);
    other.join();
    ComTAPI_Disconnect("Modem A");
    ComTAPI_Disconnect("Modem B");
}

TEST_F(Connect, AHangUpOnThePortsOwnThreadDoesNotWaitForItself) {
    ASSERT_EQ(connect(), 130);
    ComTAPI_Cancel(
        "Modem A"); // the next word hangs up, on the port's thread: nobody else lets messages through
    service.postState(service.lastCall(), callState::disconnected, disconnectedBy::normal);
    EXPECT_TRUE(eventually([&] { return service.openLines() == 0; }));
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    expectIdle();
}

TEST_F(Connect, APortThatIsInTheWayIsClosedOnItsOwnThread) {
    ASSERT_EQ(ComTAPI_OPENPORT(130, service.handleOf(0)), 130);
    ASSERT_EQ(ComTAPI_AutoAnswer("Modem A", 1), 1);
    const uint32_t line = service.openLine(0);
    service.offer(line); // from here on the port's thread does everything
    service.ring(line, 1);
    EXPECT_TRUE(eventually([&] { return service.openLines() == 0 && ComOpenState(130) == 0; }));
    EXPECT_EQ(telephony.logged("Failed to open tapi port: 130 Error Code:-2"), 1);
    ComTAPI_Disconnect("Modem A");
    expectIdle();
}

} // namespace
} // namespace brisolt::test

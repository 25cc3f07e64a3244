// Calls that are placed: from the number to the port, and every way in which that can fail.
#include <span>

#include <unistd.h>

#include "telephony/two_modems.h"

namespace brisolt::test {
namespace {

using Connect = TwoModems;

TEST_F(Connect, TheConnectedCallIsAPort) {
    service.onMakeCall = [&](uint32_t call) {
        service.postState(call, callState::connected);
        service.postState(call, callState::connected); // told twice, there is one port
    };
    EXPECT_EQ(connect("5551", "P"), 130);
    ComServiceMessagePump();
    EXPECT_EQ(service.count("lineGetIDA of a call"), 1);
    const service::CallParameters& asked = service.lastParameters;
    EXPECT_EQ(std::tuple(asked.totalSize, asked.bearerMode, asked.mediaMode, asked.callFlags),
              std::tuple(178U, service::bearer::voice, 16U, 2U));
    EXPECT_EQ(service.lastDisplayable, std::string("#\0", 2));
    EXPECT_EQ(service.seen(service.opened), (std::vector<std::pair<uint32_t, uint32_t>>{{1, 16}, {1, 16}}));
    EXPECT_EQ(connect(), -1);
    EXPECT_EQ(arm(), -1);
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    expectIdle();
    EXPECT_TRUE(eventually([&] { return !service.lineOf(0).connected(); })) << "the handle stayed open";
    expectLogged({"Return CONNECTED Port: 130", "Line Dropped Response: 1", "Line Closed.\n",
                  "TAPI lineMakeCall Completed - return: 1 phone number:P5551"});
}

TEST_F(Connect, NumbersAreDialledInFullOrNotAtAll) {
    const std::string longest(74, '7');
    for (const char* mode : {"P", "t", "PP", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(connect(longest.c_str(), mode), 130);
        ComTAPI_Disconnect("Modem A");
    }
    EXPECT_EQ(service.seen(service.dialled),
              (std::vector{"P" + longest, "T" + longest, "T" + longest, "T" + longest}));
    const auto opened = service.seen(service.opened);
    EXPECT_EQ(connect((longest + "7").c_str()), -4);
    EXPECT_EQ(connect(nullptr), -4);
    EXPECT_EQ(ComTAPI_Connect_Thread("Modem A", std::string(100000, '7').c_str(), "T"), -4);
    EXPECT_EQ(service.seen(service.opened), opened);
}

TEST_F(Connect, UnknownDevices) {
    for (const char* name : {"Modem C", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(ComTAPI_Connect(name, "1", "T"), -3);
        EXPECT_EQ(ComTAPI_Connect_Thread(name, "1", "T"), -3);
        EXPECT_EQ(arm(name), -3);
        for (auto* call : {ComTAPI_Connect_Status, ComTAPI_Cancel, ComTAPI_Disconnect,
                           ComTAPI_GetAutoAnswerState, ComTAPI_GetAutoAnswer_ConnectPort})
            EXPECT_EQ(call(name), -3);
    }
    Com_TAPI_Shutdown();
    EXPECT_EQ(connect(), -6);
    EXPECT_EQ(arm(), -6);
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
}

TEST_F(Connect, FaultsOfTheLineArePlainAndMayBeTriedAgain) {
    // The entry point and its answers, of which the first is the check's; the code, and what the log tells.
    using Fault = std::tuple<const char*, std::deque<int32_t>, int32_t, std::string>;
    const int32_t odd = result::code(0x99), incompatible = result::incompatibleVersion;
    const std::string taken = "Line is already in use by a non-TAPI app";
    const std::string takenThen = taken + "lication or by another TAPI Service Provider";
    const Fault both[] = {
        {"lineNegotiateAPIVersion", {incompatible}, -4, "lineNegotiateAPIVersion, INCOMPATIBLEAPIVERSION."},
        {"lineGetDevCapsA", {result::operationFailed}, -4, "TAPI Operation Failed for unknown reasons."},
        {"lineOpenA", {result::lineInUse}, -4, taken + " or another Service Provider."},
        {"lineOpenA", {0, odd}, -15, "lineOpen unhandled error: -2147483495"},
        {"lineGetIDA", {5}, -4, "lpLineDevCaps = 1"},
    };
    const Fault placing[] = {
        {"lineNegotiateAPIVersion", {0, incompatible}, -10, "Line Version unsupported"},
        {"lineGetDevCapsA", {0, odd}, -11, "Error on Requested line - Unable to Use Line"},
        {"lineOpenA", {0, result::lineInUse}, -14, takenThen + "."},
        {"lineGetAddressStatusA", {0, odd}, -16, "Unable to Use Line"},
        {"lineSetStatusMessages", {odd}, 130, "lineSetStatusMessages unhandled error: -2147483495"},
        {"lineGetAddressCapsA", {odd}, -11, "lineGetAddressCaps unhandled error: -2147483495"},
        {"lineMakeCallA", {odd}, -19, "Error in lineMakeCall: -2147483495"},
    };
    const Fault arming[] = {
        {"lineNegotiateAPIVersion", {0, incompatible}, -10, "Unable to Use Line"},
        {"lineGetDevCapsA", {0, odd}, -11, "Unable to Use Line"},
        {"lineOpenA", {0, result::lineInUse}, -14, takenThen},
        {"lineGetAddressStatusA", {odd}, -4, "Line NOT Useable ERROR"},
        {"lineGetAddressStatusA", {0, odd}, -16, "Unable to use line"},
        {"lineSetStatusMessages", {odd}, -15, "lineSetStatusMessages unhandled error: 80000099"},
    };
    auto check = [&](std::span<const Fault> faults, auto call) {
        for (const auto& [entry, results, code, text] : faults) {
            const int32_t before = logged(text);
            service.answer(entry, results);
            EXPECT_EQ(call(), code) << entry;
            EXPECT_EQ(logged(text), before + 1) << text;
            if (code >= 0)
                ComTAPI_Disconnect("Modem A");
            expectIdle();
        }
    };
    check(both, [] { return connect(); });
    check(both, [] { return arm(); });
    check(placing, [] { return connect(); });
    check(arming, [] { return arm(); });
    service.modems[0].addressFeatures = 1;
    EXPECT_EQ(connect(), -14);
    service.modems[0].lineFeatures = 0;
    EXPECT_EQ(connect(), -4);
    EXPECT_EQ(arm(), -4);
    expectLogged({"This line is not available to place a call.", "LINEFEATURE_MAKECALL not supported ",
                  "LINEFEATURE_MAKECALL not supported"});
}

std::string boxes;

TEST_F(Connect, ALineThatMakesNoCallsIsTheOneMessageBox) {
    ComHostSetMessageBox(
        [](const char* text, const char* caption) { boxes.append(text).append("/").append(caption); });
    const ScriptedModem whole = service.modems[0];
    auto expectWithout = [&](auto member, int32_t placing, int32_t arming) {
        for (bool places : {true, false}) {
            service.modems[0] = whole;
            service.padding = [this, member, asked = 0](uint32_t) mutable {
                if (++asked == 3) // capabilities, address status, identifier: the check is done
                    service.modems[0].*member = 0;
                return 0U;
            };
            EXPECT_EQ(places ? connect() : arm(), places ? placing : arming);
            expectIdle();
        }
    };
    expectWithout(&ScriptedModem::mediaModes, -12, -12);
    expectWithout(&ScriptedModem::bearerModes, -5, -15);
    EXPECT_EQ(boxes, "");
    expectWithout(&ScriptedModem::lineFeatures, -13, -13);
    const std::string box = "Error on Requested line/The selected line doesn't support MAKECALL capabilities";
    EXPECT_EQ(boxes, box + box);
}

TEST_F(Connect, AnEndedCallIsNamedByItsFirstCauseWhateverTheServiceRefuses) {
    // The state with its detail and privilege; the code, and what the log tells.
    constexpr std::tuple<uint32_t, uint32_t, uint32_t, int32_t, const char*> endings[] = {
        {callState::busy, 0, 0, -24, "Line busy"},
        {callState::idle, 0, 0, -20, "Line idle"},
        {callState::specialInformation, 0, 0, -20, "Special Info, probably couldn't dial number"},
        {callState::disconnected, disconnectedBy::busy, 0, -24, "Disconnected: Busy"},
        {callState::disconnected, disconnectedBy::unavailable, 0, -26, "Disconnected: Unavail"},
        {callState::disconnected, 0x8000, 0, -20, "Disconnected: LINECALLSTATE; Bad Reason"},
        {callState::proceeding, 0, 2, -21, "line given monitor privilege; closing"},
        {callState::proceeding, 0, 4, -22, "line given owner privilege; closing"},
        {callState::proceeding, 0, 1, -23, "Unknown LINECALLPRIVILEGE message: closing"},
        {0x80000, 0, 0, -20, "Unhandled LINECALLSTATE message"},
    };
    ComTAPI_SetModemWaitTime(10); // for endings that are no word for the wait
    for (const auto& [last, detail, privilege, code, entry] : endings) {
        service.onMakeCall = [&, state = last, detail = detail, privilege = privilege](uint32_t call) {
            service.postState(call, callState::dialling);
            service.postState(call, state, detail, privilege);
        };
        const int32_t before = logged(entry);
        EXPECT_EQ(connect(), code) << entry;
        EXPECT_GT(logged(entry), before) << entry;
        expectIdle();
    }
    ComTAPI_SetModemWaitTime(500);
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::connected, 0, 4); };
    EXPECT_EQ(connect(), 130) << "an owner's call still connects";
    ComTAPI_Disconnect("Modem A");

    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::busy); };
    service.answer("lineSetStatusMessages", {result::code(0x99)});
    EXPECT_EQ(connect(), -15) << "that is the first cause then";
    expectIdle();
    service.answer("lineGetCallStatus", {result::code(0x99), result::code(0x99)});
    EXPECT_EQ(connect(), -24);
    EXPECT_EQ(logged("lineGetCallStatus unhandled error: -2147483495"), 2);
    expectIdle();
}

TEST_F(Connect, ASilentModemIsDroppedWhenItsTimeIsOver) {
    ComTAPI_SetModemWaitTime(10);
    service.onMakeCall = [](uint32_t) {};
    EXPECT_EQ(connect(), -20);
    expectLogged({"Timed-out waiting for modem to do something", "WaitForCallState failed", "Call Dropped.",
                  "Line Closed."});
    expectIdle();
    service.answer("lineDrop", {}, result::code(0x99)); // nor does it tell anything at its end
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::proceeding); };
    EXPECT_EQ(connect(), -20);
    EXPECT_EQ(logged("WAITTIMEDOUT"), 2);
    expectLogged({"Call timed out waiting for IDLE state."});
    expectIdle();
}

TEST_F(Connect, ACancelOrAShutdownEndsTheWait) {
    service.padding = [](uint32_t) { // while the line is looked at: that spares the call
        ComTAPI_Cancel("Modem A");
        return 0U;
    };
    EXPECT_EQ(connect(), -29);
    EXPECT_TRUE(service.seen(service.dialled).empty());
    service.padding = [](uint32_t) { return 0U; };
    auto connectAnd = [&](auto end) {
        std::thread other([&] {
            EXPECT_TRUE(eventually([&] { return service.liveCalls() == 1; }));
            end();
        });
        const int32_t code = connect();
        other.join();
        return code;
    };
    service.onMakeCall = [&](uint32_t call) { service.postState(call, callState::ringBack); };
    EXPECT_EQ(connectAnd([] { EXPECT_EQ(ComTAPI_Cancel("Modem A"), 1); }), -29);
    expectIdle();
    EXPECT_EQ(connectAnd(Com_TAPI_Shutdown), -20) << "the cancel has not outlived its connect";
}

TEST_F(Connect, AHandleThatIsNoLineEndsTheCall) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    service.handleOf = [&](uint32_t) { return pipe[0]; }; // the library's to close
    EXPECT_EQ(connect(), -20);
    expectIdle();
    service.answer("lineGetIDA of a call", {result::code(0x99)});
    EXPECT_EQ(connect(), -5);
    expectIdle();
    expectLogged({"Failed to open tapi port: 130 Error Code:-30", "lineGetID unhandled error: -2147483495"});
    ::close(pipe[1]);
}

TEST_F(Connect, WhatIsHandledElsewhereIsWaitedFor) {
    std::thread other;
    uint32_t state = callState::connected, privilege = 0;
    service.onMakeCall = [&](uint32_t call) {
        other = std::thread([&, call] { service.tellState(call, state, privilege); });
    };
    service.handleOf = [this, give = service.handleOf](uint32_t device) {
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
        return give(device);
    };
    for (int32_t left = 23; left > 0; --left) {
        EXPECT_EQ(connect(), state == callState::connected ? 130 : -23); // that only when it has hung up
        other.join();
        ComTAPI_Disconnect("Modem A");
        if (left == 20)
            std::tie(state, privilege) = std::tuple(callState::proceeding, 1U);
    }
}

TEST_F(Connect, AWordThatIsFasterThanTheAnswerToTheRequestIsKeptForIt) {
    ASSERT_EQ(arm(), 1); // a line that is open, too, but not for this call
    std::thread other;
    bool elsewhere = false;
    service.onMakeCall = [&](uint32_t call) { // the request is still under way
        auto tell = [=, this] { service.tellState(call, callState::connected); };
        if (!elsewhere)
            return tell();
        other = std::thread(tell);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    for (int32_t turn = 0; turn < 6; ++turn) {
        elsewhere = turn % 2 == 1;
        service.reusedHandle = turn < 4 ? 0x5551 : 0; // a service may give a call the handle of an old one
        clock::setTestScale(1);                       // the word is not kept for long
        EXPECT_EQ(ComTAPI_Connect("Modem B", "2", "T"), 131);
        if (elsewhere)
            other.join();
        clock::setTestScale(50);
        ComTAPI_Disconnect("Modem B");
        ComServiceMessagePump(); // its last words are not for the next one
    }
    ComTAPI_Disconnect("Modem A");
}

TEST_F(Connect, UnknownCallsGoToTheFirstOpenLineAndOfferedOnesToTheFirstThatWaits) {
    service.onMakeCall = [&](uint32_t) { // whose line is open, too, and has no call as yet
        service.tellState(0x7777, callState::offering);
        service.ring(service.openLine(1), 1);
    };
    ASSERT_EQ(arm("Modem B"), 1);
    int32_t code = 0;
    std::thread caller([&] { code = connect(); });
    EXPECT_TRUE(reaches(105, "Modem B"));
    ComTAPI_Disconnect("Modem B");
    ASSERT_EQ(arm("Modem B"), 1);
    service.tellState(0x5555, callState::busy);
    caller.join();
    EXPECT_EQ(code, -24);
    EXPECT_NE(service.openLine(1), 0U) << "the line that waits has lost its call";
    ComTAPI_Disconnect("Modem B");
}

TEST_F(Connect, HangUpsOnThePortsOwnThreadDoNotWaitForThemselves) {
    ASSERT_EQ(connect(), 130);
    ComTAPI_Cancel("Modem A");
    // This word hangs up, on the port's thread: nobody else lets messages through.
    service.postState(service.seen(service.calls).begin()->first, callState::disconnected);
    EXPECT_TRUE(eventually([&] { return service.openLines() == 0; }));
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    expectIdle();

    // A port that is in the way is closed there, too.
    ASSERT_EQ(ComTAPI_OPENPORT(130, service.handleOf(0)), 130);
    ASSERT_EQ(arm(), 1);
    service.callIn(0); // from here on the port's thread does everything
    EXPECT_TRUE(eventually([&] { return service.openLines() == 0 && ComOpenState(130) == 0; }));
    EXPECT_EQ(logged("Failed to open tapi port: 130 Error Code:-2"), 1);
    ComTAPI_Disconnect("Modem A");
    expectIdle();
}

} // namespace
} // namespace brisolt::test

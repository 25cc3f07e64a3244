// Calls that come in, and what lines tell about themselves.
#include <gtest/gtest.h>

#include "telephony/scripted_service.h"

namespace brisolt::test {
namespace {

namespace result = service::result;
namespace callState = service::callState;
namespace deviceState = service::deviceState;

struct AutoAnswer : testing::Test {
    void SetUp() override { ASSERT_EQ(telephony.initialise(), 2); }

    static int32_t state(const char* name = "Modem A") { return ComTAPI_GetAutoAnswerState(name); }
    void deliver() { ComServiceMessagePump(); }

    Telephony telephony;
    ScriptedService& service = telephony.service;
};

TEST_F(AutoAnswer, AnswersAfterTheRingsThatWereAskedFor) {
    EXPECT_EQ(state(), 0);
    EXPECT_EQ(ComTAPI_GetAutoAnswer_ConnectPort("Modem B"), 131);
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 3), 1);
    EXPECT_EQ(state(), 101);
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 3), -1);
    EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), -1);
    const uint32_t line = service.openLine(0);
    const uint32_t call = service.offer(line);
    for (uint32_t count : {1U, 2U}) {
        service.ring(line, count);
        deliver();
        EXPECT_EQ(state(), 102);
        EXPECT_EQ(service.count("lineAnswer"), 0);
    }
    service.post(line, service::message::reply, 1);
    service.post(call, service::message::reply, 1);
    service.ring(line, 3);
    deliver();
    EXPECT_TRUE(eventually([&] {
        deliver();
        return state() == 105;
    }));
    EXPECT_EQ(service.count("lineAnswer"), 1);
    service.lineOf(0).write("caller");
    EXPECT_EQ(receive(130, 6), "caller");
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    EXPECT_EQ(service.liveCalls(), 0U);
    EXPECT_EQ(service.openLines(), 0U);
    EXPECT_EQ(telephony.logged("Line is suitable and available for AA use."), 1);
    EXPECT_EQ(telephony.logged("In AA state: Rings: 2 Desired: 3"), 1);
    EXPECT_EQ(telephony.log().find("Error answering call"), std::string::npos);
    // The reply about the call is known, the one about the line is not.
    char unknown[80];
    std::snprintf(unknown, sizeof unknown, "DoLineReply: Unknown device ID '0x%x'.", line);
    EXPECT_EQ(telephony.logged(unknown), 1);
}

TEST_F(AutoAnswer, OnlyAnAcceptedRequestIsAnAnswer) {
    for (int32_t rings : {0, -5, INT32_MIN}) {
        service.answer("lineAnswer", {result::code(0x99)});
        ASSERT_EQ(ComTAPI_AutoAnswer("Modem A", rings), 1);
        const uint32_t line = service.openLine(0);
        service.offer(line);
        service.ring(line, 1);
        deliver();
        EXPECT_EQ(state(), 104);
        ComTAPI_Disconnect("Modem A");
    }
    EXPECT_NE(telephony.log().find("Error answering call - Return:80000099 Call:"), std::string::npos);
}

TEST_F(AutoAnswer, TwoArmedLinesAnswerTheirOwnCalls) {
    ASSERT_EQ(ComTAPI_AutoAnswer("Modem A", 1), 1);
    ASSERT_EQ(ComTAPI_AutoAnswer("Modem B", 1), 1);
    for (uint32_t device : {1U, 0U}) { // the offer does not say which line it is for; the ring does
        const uint32_t line = service.openLine(device);
        service.offer(line);
        service.ring(line, 1);
    }
    EXPECT_TRUE(eventually([&] {
        deliver();
        return state("Modem A") == 105 && state("Modem B") == 105;
    }));
    service.lineOf(0).write("A");
    service.lineOf(1).write("B");
    EXPECT_EQ(receive(130, 1), "A");
    EXPECT_EQ(receive(131, 1), "B");
    ComTAPI_Disconnect("Modem A");
    ComTAPI_Disconnect("Modem B");
}

TEST_F(AutoAnswer, LinesThatCannotBeArmed) {
    struct Case {
        const char* entry;
        std::vector<int32_t> results; ///< the first is the check's
        int32_t code;
        const char* entryOfLog;
    };
    const Case cases[] = {
        {"lineGetAddressStatusA", {result::code(0x99)}, -4, "Line NOT Useable ERROR"},
        {"lineNegotiateAPIVersion",
         {0, result::incompatibleVersion},
         -10,
         "lineNegotiateAPIVersion, INCOMPATIBLEAPIVERSION."},
        {"lineGetDevCapsA", {0, result::code(0x99)}, -11, "Unable to Use Line"},
        {"lineOpenA",
         {0, result::lineInUse},
         -14,
         "Line is already in use by a non-TAPI application or by another TAPI Service Provider"},
        {"lineOpenA", {0, result::code(0x99)}, -15, "lineOpen unhandled error: -2147483495"},
        {"lineSetStatusMessages",
         {result::code(0x99)},
         -15,
         "lineSetStatusMessages unhandled error: 80000099"},
        {"lineGetAddressStatusA", {0, result::code(0x99)}, -16, "Unable to use line"},
    };
    for (const Case& fault : cases) {
        const int32_t before = telephony.logged(fault.entryOfLog);
        service.answer(fault.entry, fault.results);
        EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 1), fault.code) << fault.entryOfLog;
        EXPECT_EQ(telephony.logged(fault.entryOfLog), before + 1) << fault.entryOfLog;
        EXPECT_EQ(service.openLines(), 0U);
    }
    service.modems[0].lineFeatures = 0;
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 1), -4);
    EXPECT_EQ(telephony.logged("LINEFEATURE_MAKECALL not supported"), 1);
    service.modems[0].lineFeatures = 8;
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 1), 1);
    Com_TAPI_Shutdown();
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 1), -6);
    EXPECT_EQ(state(), -6);
}

TEST_F(AutoAnswer, WhatLinesTellIsLogged) {
    ASSERT_EQ(ComTAPI_AutoAnswer("Modem A", 1), 1);
    const uint32_t line = service.openLine(0);
    struct Case {
        uint32_t state, detail, third;
        const char* entry;
    };
    const Case cases[] = {
        {deviceState::disconnected, 0, 0, "Line selected is now disconnected.\r\n"},
        {deviceState::outOfService, 0, 0, "Line selected is now Out of Service.\r\n"},
        {deviceState::maintenance, 0, 0, "Line selected is now out for maintenance.\r\n"},
        {deviceState::removed, 0, 0, "A Line device has been removed - no action taken."},
        {0x10, 0, 0, "Unhandled LINEDEVSTATE message"},
        {deviceState::reinitialise, service::message::lineCreated, 0, "Soft REINIT: LINE_CREATE."},
        {deviceState::reinitialise, 5, 0, "Ignoring soft REINIT"},
        {deviceState::reinitialise, service::message::lineDeviceState, deviceState::reinitialise,
         "Soft REINIT: LINE_LINEDEVSTATE."},
    };
    for (const Case& report : cases) {
        service.tell(line, service::message::lineDeviceState, report.state, report.detail, report.third);
        EXPECT_EQ(telephony.logged(report.entry), 1) << report.entry;
    }
    service.tell(line, service::message::lineDeviceState, deviceState::capabilitiesChanged);
    EXPECT_EQ(telephony.logged("Unhandled LINEDEVSTATE message"), 1);
    service.tell(0x5555, service::message::lineDeviceState, deviceState::ringing, 0, 1);
    EXPECT_EQ(telephony.logged("LINEDEV_CALLSTATE: Unknown device ID '0x5555'."), 1);
    service.tell(line, service::message::lineClosed, 0);
    EXPECT_EQ(telephony.logged("DoLineClose event"), 1);
    service.tell(line, service::message::lineCreated, 0);
    service.tell(line, 0x4242, 0);
    EXPECT_EQ(telephony.logged("lineCallbackFunc message ignored"), 1);
    EXPECT_EQ(state(), 101);
    ComTAPI_Disconnect("Modem A");
    service.tell(0x5555, service::message::callState, callState::busy); // nobody's
}

} // namespace
} // namespace brisolt::test

// Calls that come in, and what lines tell about themselves.
#include "telephony/two_modems.h"

namespace brisolt::test {
namespace {

using AutoAnswer = TwoModems;

TEST_F(AutoAnswer, AnswersAfterTheRingsThatWereAskedFor) {
    EXPECT_EQ(state(), 0);
    EXPECT_EQ(ComTAPI_GetAutoAnswer_ConnectPort("Modem B"), 131);
    EXPECT_EQ(arm("Modem A", 3), 1);
    EXPECT_EQ(service.seen(service.opened).back(),
              (std::pair<uint32_t, uint32_t>{service::privilege::owner, 16}));
    EXPECT_EQ(state(), 101);
    EXPECT_EQ(arm("Modem A", 3), -1);
    EXPECT_EQ(connect(), -1);
    const uint32_t line = service.openLine(0);
    const uint32_t call = service.offer(line);
    for (uint32_t count : {1U, 2U}) {
        service.ring(line, count);
        ComServiceMessagePump();
        EXPECT_EQ(state(), 102);
        EXPECT_EQ(service.count("lineAnswer"), 0);
    }
    service.post(line, message::reply, 1);
    service.post(call, message::reply, 1);
    service.ring(line, 3);
    EXPECT_TRUE(reaches(105));
    EXPECT_EQ(service.count("lineAnswer"), 1);
    EXPECT_EQ(ComTAPI_Disconnect("Modem A"), 1);
    expectIdle();
    expectLogged({"Line is suitable and available for AA use.", "In AA state: Rings: 2 Desired: 3"});
    EXPECT_EQ(log().find("Error answering call"), std::string::npos);
    EXPECT_EQ(log().find("DoLineReply"), log().rfind("DoLineReply")) << "it knows the call, and not the line";
    EXPECT_NE(log().find("DoLineReply: Unknown device ID '0x"), std::string::npos);
}

TEST_F(AutoAnswer, ACallThatComesToNothingLeavesTheLineArmed) {
    ASSERT_EQ(arm(), 1);
    auto end = [&](uint32_t call) {
        service.postState(call, callState::disconnected, disconnectedBy::normal);
        service.postState(call, callState::idle);
        ComServiceMessagePump();
        EXPECT_EQ(service.liveCalls(), 0U) << "nobody else would release it";
        EXPECT_EQ(state(), 101);
    };
    end(service.offer(service.openLine(0))); // given up before it rang
    service.answer("lineAnswer", {7});       // accepted, and then nothing
    const uint32_t call = service.callIn(0);
    ComServiceMessagePump();
    EXPECT_EQ(state(), 104);
    end(call);
    service.callIn(0);
    EXPECT_TRUE(reaches(105));
    ComTAPI_Disconnect("Modem A");
    ASSERT_EQ(arm(), 1);
    const uint32_t last = service.offer(service.openLine(0));
    ComServiceMessagePump();
    ComTAPI_Disconnect("Modem A");
    ASSERT_EQ(arm("Modem B"), 1);
    service.tellState(last, callState::busy); // a late word about an offer is nobody's
    EXPECT_NE(service.openLine(1), 0U);
    ComTAPI_Disconnect("Modem B");

    for (int32_t rings : {0, -5, INT32_MIN}) {
        service.answer("lineAnswer", {result::code(0x99)});
        ASSERT_EQ(arm("Modem A", rings), 1);
        service.callIn(0);
        ComServiceMessagePump();
        EXPECT_EQ(state(), 104);
        ComTAPI_Disconnect("Modem A");
    }
    EXPECT_NE(log().find("Error answering call - Return:80000099 Call:"), std::string::npos);
}

TEST_F(AutoAnswer, TwoArmedLinesAnswerTheirOwnCalls) {
    ASSERT_EQ(arm("Modem A"), 1);
    ASSERT_EQ(arm("Modem B"), 1);
    for (uint32_t device : {1U, 0U}) // the offer does not say which line it is for; the ring does
        service.callIn(device);
    EXPECT_TRUE(reaches(105, "Modem A") && reaches(105, "Modem B"));
    for (uint32_t device : {0U, 1U}) {
        service.lineOf(device).write(std::string(1, static_cast<char>('A' + device)));
        EXPECT_EQ(receive(130 + static_cast<int32_t>(device), 1)[0], 'A' + static_cast<int>(device));
    }
    disconnect();
}

TEST_F(AutoAnswer, WhatLinesTellIsLogged) {
    constexpr uint32_t again = deviceState::reinitialise;
    const std::tuple<uint32_t, uint32_t, uint32_t, const char*> reports[] = {
        {deviceState::disconnected, 0, 0, "Line selected is now disconnected.\r\n"},
        {0x10, 0, 0, "Unhandled LINEDEVSTATE message"},
        {deviceState::capabilitiesChanged, 0, 0, "Unhandled LINEDEVSTATE message"},
        {again, message::lineCreated, 0, "Soft REINIT: LINE_CREATE."},
        {again, 5, 0, "Ignoring soft REINIT"},
        {again, message::lineDeviceState, again, "Soft REINIT: LINE_LINEDEVSTATE."},
    };
    ASSERT_EQ(arm(), 1);
    const uint32_t line = service.openLine(0);
    for (const auto& [state, detail, third, entry] : reports) {
        service.tell(line, message::lineDeviceState, state, detail, third);
        expectLogged({entry});
    }
    service.tell(0x5555, message::lineDeviceState, deviceState::ringing, 0, 1);
    for (uint32_t other : {message::lineClosed, message::lineCreated, 0x4242U})
        service.tell(line, other, 0);
    expectLogged({"LINEDEV_CALLSTATE: Unknown device ID '0x5555'.", "DoLineClose event",
                  "lineCallbackFunc message ignored"});
    EXPECT_EQ(state(), 101);
    ComTAPI_Disconnect("Modem A");
    service.tellState(0x5555, callState::busy); // nobody's
}

} // namespace
} // namespace brisolt::test

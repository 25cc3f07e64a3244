// The port that a call becomes.
#include <fcntl.h>
#include <sys/ioctl.h>

#include "support/scripted_driver.h"
#include "telephony/telephony_port.h"
#include "telephony/two_modems.h"

namespace brisolt::test {
namespace {

using Call = ScriptedDriver::Call;

struct TelephonyPort : TwoModems {
    ~TelephonyPort() override { ComHostCloseDevice(handle); }
    ScriptedDriver driver;
    int32_t handle = ComHostOpenDevice(driver.path().c_str());
};

TEST_F(TelephonyPort, WorksOnTheHandleOfACall) {
    Pty line;
    const int terminal = ::open(line.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(ComTAPI_OPENPORT(131, terminal), 131);
    const PortRecord& record = recordOf(131);
    EXPECT_STREQ(record.deviceName, "com");
    EXPECT_STREQ(record.discStr, "+++~~~ATH0|");
    EXPECT_EQ(record.threadSleep, 200U);
    EXPECT_EQ(record.rxBufSize, 16384);
    EXPECT_EQ(ComOutBufSize(131), 16384);
    EXPECT_EQ(ComPortdcb(131), terminal);
    EXPECT_EQ(ComTAPI_OPENPORT(131, terminal), -2);
    EXPECT_EQ(ComOpenState(131), 1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(131), 1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(131), -1);
    EXPECT_TRUE(eventually([&] { return !line.connected(); }));
}

TEST_F(TelephonyPort, WhatTheOtherEndSaidFirstIsReadWhereTheServiceHasTakenTheModemsWords) {
    for (const telephony::Held held : {telephony::Held::discarded, telephony::Held::read}) {
        Pty line;
        const int terminal = ::open(line.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        line.write("early ");
        EXPECT_TRUE(eventually([&] {
            int waiting = 0;
            return ioctl(terminal, FIONREAD, &waiting) == 0 && waiting == 6;
        }));
        ASSERT_EQ(telephony::openTelephonyPort(131, terminal, held), 131);
        line.write("late");
        const std::string wanted = held == telephony::Held::read ? "early late" : "late";
        EXPECT_EQ(receive(131, wanted.size()), wanted);
        EXPECT_EQ(ComTAPI_CLOSEPORT(131), 1);
    }
}

TEST_F(TelephonyPort, RefusalsLeaveTheHandleToItsOwner) {
    const std::tuple<Call, int32_t, const char*> refusals[] = {
        {Call::setQueues, -30, "SetupComm failure"},
        {Call::setTimeouts, -39, "SetCommTimeouts failure"},
        {Call::setLineState, -36, "SetCommState Failure"}};
    for (const auto& [call, code, entry] : refusals) {
        driver.refuse(call, 1);
        EXPECT_EQ(ComTAPI_OPENPORT(140, handle), code) << entry;
        expectLogged({entry});
        EXPECT_EQ(ComOpenState(140), 0);
    }
    EXPECT_EQ(ComTAPI_OPENPORT(140, -1), -30);
    driver.refuse(Call::setEventMask, 1);
    EXPECT_EQ(ComTAPI_OPENPORT(140, handle), 140) << "needs no events";
    EXPECT_NE(log().find("TAPI_OPENPORT Set Mask Failure: RTC:0 Error:"), std::string::npos);
    expectLogged({"TAPI_OPENPORT - SUCCESS: 140"});
    EXPECT_EQ(ComTAPI_CLOSEPORT(140), 1);
}

TEST_F(TelephonyPort, TheFramingIsTheDevicesOwn) {
    // The device's data bits, parity and stop bits; the result, the codes in the record, what the log tells.
    constexpr std::tuple<uint8_t, uint8_t, uint8_t, int32_t, int32_t, int32_t, const char*> framings[] = {
        {8, 5, COM_HOST_STOP_1, -33, 0, 0, "TAPI_OPENPORT: Parity invalid:5"},
        {9, COM_HOST_PARITY_NONE, COM_HOST_STOP_1, -34, 0, 0, "databits invalid:9"},
        {8, COM_HOST_PARITY_NONE, 3, -35, 0, 0, "StopBits invalid:3"},
        {7, COM_HOST_PARITY_EVEN, COM_HOST_STOP_1, 131, 3, 1, "TAPI_OPENPORT - SUCCESS: 131"},
        {5, COM_HOST_PARITY_SPACE, COM_HOST_STOP_1_5, 132, 5, 3, "TAPI_OPENPORT - SUCCESS: 132"},
        {8, COM_HOST_PARITY_NONE, COM_HOST_STOP_2, 133, 1, 2, "TAPI_OPENPORT - SUCCESS: 133"},
    };
    for (const auto& [dataBits, parity, stopBits, result, parityCode, stopCode, entry] : framings) {
        ComHostLineState state = driver.lineState();
        state.size = sizeof state;
        state.baudRate = 2400;
        state.dataBits = dataBits;
        state.parity = parity;
        state.stopBits = stopBits;
        driver.setLineState(state);
        const int32_t port = std::max(result, 131);
        ASSERT_EQ(ComTAPI_OPENPORT(port, handle), result) << entry;
        expectLogged({entry});
        if (result < 0)
            continue; // the handle is still ours
        const PortRecord& record = recordOf(port);
        EXPECT_EQ(std::tuple(record.baudRate, record.dataBits, record.parityCode, record.stopCode),
                  std::tuple(2400, int32_t{dataBits}, parityCode, stopCode));
        state = driver.lineState();
        EXPECT_EQ(std::tuple(state.dataBits, state.xonLimit, state.xoffLimit),
                  std::tuple(dataBits, 256, 768));
        EXPECT_EQ(ComTAPI_CLOSEPORT(port), 1);
        handle = ComHostOpenDevice(driver.path().c_str());
    }
}

TEST_F(TelephonyPort, WithLessThanNoTimeNotEvenACarrierThatIsThereEndsADial) {
    driver.setModemLines(COM_HOST_MODEM_CARRIER);
    ASSERT_EQ(ComTAPI_OPENPORT(140, handle), 140);
    for (int32_t seconds : {-1, INT32_MIN}) {
        recordOf(140).dialTimeout = seconds;
        EXPECT_EQ(ComDial(140, "1"), -1) << seconds;
    }
    recordOf(140).dialTimeout = 600;
    EXPECT_EQ(ComDial(140, "1"), 1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(140), 1);
}

} // namespace
} // namespace brisolt::test

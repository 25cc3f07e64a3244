// The port that a call becomes.
#include <fcntl.h>
#include <unistd.h>

#include <ostream>

#include <gtest/gtest.h>

#include "support/scripted_driver.h"
#include "telephony/scripted_service.h"

namespace brisolt::test {
namespace {

using Call = ScriptedDriver::Call;

TEST(TelephonyPort, WorksOnTheHandleOfACall) {
    FastClock fast;
    Pty line;
    const int handle = ::open(line.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(ComTAPI_OPENPORT(0, handle), -1);
    EXPECT_EQ(ComTAPI_OPENPORT(257, handle), -1);
    ASSERT_EQ(ComTAPI_OPENPORT(131, handle), 131);
    const PortRecord& record = recordOf(131);
    EXPECT_STREQ(record.deviceName, "com");
    EXPECT_STREQ(record.modemName, "");
    EXPECT_STREQ(record.discStr, "+++~~~ATH0|");
    EXPECT_EQ(record.threadSleep, 200U);
    EXPECT_EQ(record.rxBufSize, 16384);
    EXPECT_EQ(ComOutBufSize(131), 16384);
    EXPECT_EQ(ComPortdcb(131), handle);
    send(131, "out");
    EXPECT_EQ(line.read(3), "out");
    line.write("in");
    EXPECT_EQ(receive(131, 2), "in");

    EXPECT_EQ(ComTAPI_OPENPORT(131, handle), -2);
    EXPECT_EQ(ComOpenState(131), 1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(131), 1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(131), -1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(-7), -1);
    EXPECT_TRUE(eventually([&] { return !line.connected(); }));
}

struct Framing {
    const char* what;
    uint8_t dataBits, parity, stopBits;
    int32_t result, parityCode, stopCode;
    const char* entry;
};
void PrintTo(const Framing& tested, std::ostream* out) {
    *out << tested.what;
}

class DeviceFraming : public testing::TestWithParam<Framing> {};

TEST_P(DeviceFraming, IsTheDevicesOwn) {
    const Framing& framing = GetParam();
    Telephony telephony;
    ASSERT_EQ(telephony.initialise(), 2);
    ScriptedDriver driver;
    const int32_t handle = ComHostOpenDevice(driver.path().c_str());
    ComHostLineState state = driver.lineState();
    state.size = sizeof state;
    state.baudRate = 2400;
    state.dataBits = framing.dataBits;
    state.parity = framing.parity;
    state.stopBits = framing.stopBits;
    driver.setLineState(state);
    ASSERT_EQ(ComTAPI_OPENPORT(131, handle), framing.result);
    if (framing.result < 0) {
        EXPECT_EQ(telephony.logged(framing.entry), 1);
        EXPECT_EQ(ComHostCloseDevice(handle), 1); // still ours
        return;
    }
    EXPECT_EQ(recordOf(131).baudRate, 2400);
    EXPECT_EQ(recordOf(131).dataBits, framing.dataBits);
    EXPECT_EQ(recordOf(131).parityCode, framing.parityCode);
    EXPECT_EQ(recordOf(131).stopCode, framing.stopCode);
    EXPECT_EQ(driver.lineState().dataBits, framing.dataBits);
    EXPECT_EQ(driver.lineState().xonLimit, 256);
    EXPECT_EQ(driver.lineState().xoffLimit, 768);
    EXPECT_EQ(ComTAPI_CLOSEPORT(131), 1);
}

INSTANTIATE_TEST_SUITE_P(
    TelephonyPort, DeviceFraming,
    testing::Values(
        Framing{"SevenEvenOne", 7, COM_HOST_PARITY_EVEN, COM_HOST_STOP_1, 131, 3, 1, ""},
        Framing{"FiveSpaceOneAndAHalf", 5, COM_HOST_PARITY_SPACE, COM_HOST_STOP_1_5, 131, 5, 3, ""},
        Framing{"EightNoneTwo", 8, COM_HOST_PARITY_NONE, COM_HOST_STOP_2, 131, 1, 2, ""},
        Framing{"Parity", 8, 5, COM_HOST_STOP_1, -33, 0, 0, "TAPI_OPENPORT: Parity invalid:5"},
        Framing{"DataBits", 9, COM_HOST_PARITY_NONE, COM_HOST_STOP_1, -34, 0, 0, "databits invalid:9"},
        Framing{"StopBits", 8, COM_HOST_PARITY_NONE, 3, -35, 0, 0, "StopBits invalid:3"}),
    [](const auto& tested) { return tested.param.what; });

TEST(TelephonyPort, RefusalsLeaveTheHandleToItsOwner) {
    Telephony telephony;
    ASSERT_EQ(telephony.initialise(), 2);
    ScriptedDriver driver;
    const int32_t handle = ComHostOpenDevice(driver.path().c_str());
    ASSERT_GE(handle, 0);
    struct Case {
        Call call;
        int32_t code;
        const char* entry;
    };
    for (const Case& refusal : {Case{Call::setQueues, -30, "SetupComm failure"},
                                Case{Call::setTimeouts, -39, "SetCommTimeouts failure"},
                                Case{Call::setLineState, -36, "SetCommState Failure"}}) {
        driver.refuse(refusal.call, 1);
        EXPECT_EQ(ComTAPI_OPENPORT(140, handle), refusal.code) << refusal.entry;
        EXPECT_EQ(telephony.logged(refusal.entry), 1) << refusal.entry;
        EXPECT_EQ(ComOpenState(140), 0);
    }
    EXPECT_EQ(ComTAPI_OPENPORT(140, -1), -30);
    driver.refuse(Call::setEventMask, 1);
    EXPECT_EQ(ComTAPI_OPENPORT(140, handle), 140);
    EXPECT_NE(telephony.log().find("TAPI_OPENPORT Set Mask Failure: RTC:0 Error:"), std::string::npos);
    EXPECT_EQ(telephony.logged("TAPI_OPENPORT - SUCCESS: 140"), 1);
    EXPECT_EQ(ComTAPI_CLOSEPORT(140), 1);
}

} // namespace
} // namespace brisolt::test

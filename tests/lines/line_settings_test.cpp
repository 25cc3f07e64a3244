// Line settings and status on the built-in null modem, whose lines really cross, and on devices that lack them.
#include <future>

#include "support/open_port.h"
#include "support/scripted_driver.h"

namespace brisolt::test {
namespace {

/// Two ports that are joined by a null modem.
struct Pair {
    explicit Pair(const std::string& name) : here(1, "null-modem:" + name), there(2, "null-modem:" + name) {}
    OpenPort here, there;
};

ComHostLineState lineOf(const OpenPort& port) {
    ComHostLineState state{};
    state.size = sizeof state;
    EXPECT_TRUE(port.inside().device.getLineState(state));
    return state;
}

TEST(Lines, LinesBreaksAndPulsesCrossToTheOtherEnd) {
    Pair pair("lines-cross");
    for (const int32_t dtr : {0, 1})
        for (const int32_t rts : {0, 1}) {
            EXPECT_EQ((dtr == 1 ? ComSetDTR : ComClearDTR)(pair.here), 1);
            EXPECT_EQ((rts == 1 ? ComSetRTS : ComClearRTS)(pair.here), 1);
            EXPECT_EQ(ComCarrier(pair.there), dtr);
            EXPECT_EQ(ComGetDSRStatus(pair.there), dtr);
            EXPECT_EQ(ComGetCTSStatus(pair.there), rts);
        }
    EXPECT_EQ(ComCarrierTx(pair.there), 0) << "the latch is not the line";
    EXPECT_EQ(ComSetCarrier(pair.there, 7), 1);
    EXPECT_EQ(ComCarrierTx(pair.there), 1);

    EXPECT_EQ(ComGetBreakStatus(pair.there), 0);
    EXPECT_EQ(ComBreak(pair.here), 1);
    // What a status read has seen stays until it is asked for, the break beside the errors.
    EXPECT_TRUE(
        eventually([&] { return ComStatus(pair.there) == 0 && pair.there.record().lineErrors != 0; }));
    EXPECT_EQ(ComGetLineError(pair.there), COM_HOST_ERROR_BREAK);
    EXPECT_EQ(ComGetLineError(pair.there), 0);
    EXPECT_EQ(ComGetBreakStatus(pair.there), 1);
    EXPECT_EQ(ComGetBreakStatus(pair.there), 0) << "once";

    pair.here.record().dtrPulseTime = 20;
    auto pulse = std::async(std::launch::async, [&] { return ComDTR(pair.here); });
    EXPECT_TRUE(eventually([&] { return ComCarrier(pair.there) == 0; }));
    EXPECT_EQ(pulse.get(), 1);
    EXPECT_EQ(ComCarrier(pair.there), 1);
    pair.here.record().portNumber = 0;
    EXPECT_EQ(ComDTR(pair.here), -1);
    pair.here.record().portNumber = 1;
}

TEST(Lines, ChangesReachTheDeviceAndFramingErrorsTheOtherEnd) {
    Pair pair("lines-baud");
    EXPECT_EQ(ComSetBaud(pair.here, 123456), 1);
    EXPECT_EQ(lineOf(pair.here).baudRate, 123456U);
    EXPECT_EQ(pair.here.record().baudRate, 123456);
    send(pair.here, "x");
    EXPECT_TRUE(eventually([&] { return (ComGetLineError(pair.there) & COM_HOST_ERROR_FRAMING) != 0; }));

    EXPECT_EQ(ComSetParms(pair.here, 3, 7, 2), 1);
    EXPECT_EQ(lineOf(pair.here).parity, COM_HOST_PARITY_EVEN);
    EXPECT_EQ(lineOf(pair.here).dataBits, 7);
    EXPECT_EQ(lineOf(pair.here).stopBits, COM_HOST_STOP_2);
    EXPECT_EQ(ComSetStop(pair.here, 3), 1);
    EXPECT_EQ(lineOf(pair.here).stopBits, COM_HOST_STOP_1_5);
    EXPECT_EQ(ComSetPar(pair.here, 2), 1);
    EXPECT_EQ(ComSetBits(pair.here, 8), 1);
    EXPECT_EQ(lineOf(pair.here).parity, COM_HOST_PARITY_ODD);

    for (const auto& [parity, bits, stop] :
         {std::tuple{0, 8, 1}, {6, 8, 1}, {1, 3, 1}, {1, 9, 1}, {1, 8, 0}, {1, 8, 4}})
        EXPECT_EQ(ComSetParms(pair.here, parity, bits, stop), -1);
    EXPECT_EQ(pair.here.record().parityCode, 2);
    EXPECT_EQ(pair.here.record().stopCode, 3);
}

TEST(Lines, ADeviceThatHoldsBytesIsAwaitedForHalfASecondAtMost) {
    const FastClock fast(20);
    ScriptedDriver driver("drain");
    const OpenPort port(4, driver.path());
    driver.setOutQueue(100);
    const auto looks = driver.count(ScriptedDriver::Call::status);
    EXPECT_EQ(ComSetBaud(port, 300), 1);
    EXPECT_GE(driver.count(ScriptedDriver::Call::status) - looks, 10);
    EXPECT_EQ(driver.lineState().baudRate, 300U);

    driver.refuse(ScriptedDriver::Call::setLineState);
    EXPECT_EQ(ComSetBaud(port, 600), 1) << "a refusal is not told";
}

TEST(Lines, TwoThreadsThatChangeDifferentSettingsLoseNone) {
    const FastClock fast(50);
    ScriptedDriver driver("both");
    const OpenPort port(5, driver.path());
    for (int32_t turn = 0; turn < 20; ++turn) {
        auto baud = std::async(std::launch::async, [&] { return ComSetBaud(port, 1000 + turn); });
        auto flow = std::async(std::launch::async, [&] { return ComSetFlow(port, turn % 2); });
        EXPECT_EQ(ComSetParms(port, 1 + turn % 5, 8, 1), 1);
        EXPECT_EQ(baud.get(), 1);
        EXPECT_EQ(flow.get(), 1);
        EXPECT_EQ((driver.lineState().flags & COM_HOST_LINE_XON_OUTPUT) != 0, turn % 2 == 1);
        EXPECT_EQ(driver.lineState().baudRate, static_cast<uint32_t>(1000 + turn));
        EXPECT_EQ(driver.lineState().parity, turn % 5);
    }
}

TEST(Lines, CarryWhatTheKeyInForceMakesOfBytesAndEveryKeyGivesThemBack) {
    Pair pair("scramble");
    const auto onTheLine = [&](const char* code) {
        EXPECT_EQ(ComSetCode(pair.here, code), 1);
        send(pair.here, "A");
        return readTimed(pair.there, 1);
    };
    EXPECT_EQ(onTheLine("x"), "A") << "off";
    ComSetSecurity(pair.here, 1);
    // 0x41 and the default key 0x3D give 0x7C, turned right by 5 bits.
    EXPECT_EQ(onTheLine(""), "\xE3");
    EXPECT_EQ(onTheLine("\x80\x80"), "\xE3") << "a sum of 256";
    // 0x41 and 0x08 give 0x49, turned by 4 bits since the low three of the key are 0.
    EXPECT_EQ(onTheLine("\x08"), "\x94");
    EXPECT_EQ(onTheLine("\x04\x04"), "\x94");
    ComSetSecurity(pair.here, 2);
    EXPECT_EQ(onTheLine("x"), "A") << "2 is off";

    const std::string all = pattern(1000);
    for (int32_t key = 1; key < 256; ++key) {
        const std::string code{static_cast<char>(key)}; // its sum is the key
        for (OpenPort* port : {&pair.here, &pair.there}) {
            ASSERT_EQ(ComSetSecurity(*port, 1), 1);
            ASSERT_EQ(ComSetCode(*port, code.c_str()), 1);
        }
        std::string sent = all;
        ASSERT_EQ(ComWrite(pair.here, sent.data(), 1000), 1000);
        EXPECT_NE(sent, all) << "the caller's buffer is scrambled in its place";
        ASSERT_EQ(readTimed(pair.there, 1000), all) << key;
    }
}

} // namespace
} // namespace brisolt::test

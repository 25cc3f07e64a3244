// Single fields of a port's parameters: that each pair has its own field, what a change does to the device, and
// changes by several threads.
#include <array>
#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "port/ports.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

class CheckedFields : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(openOn(5, driver.path()), 5); }
    void TearDown() override { ComClose(5); }
    ComPortParms portParms() {
        ComPortParms parms{};
        EXPECT_EQ(ComGetPortParms(5, &parms), 1);
        return parms;
    }

    const FastClock fast;
    ScriptedDriver driver;
};

using Getter = int32_t (*)(int32_t);
using Setter = int32_t (*)(int32_t, int32_t);
using TextGetter = int32_t (*)(int32_t, char*);
using TextSetter = int32_t (*)(int32_t, const char*);

/// Sets each field to a number of its own, then looks at what the getters give.
void setApart(const std::vector<std::pair<Setter, Getter>>& fields, int32_t first) {
    int32_t value = first;
    for (const auto& [set, get] : fields)
        EXPECT_EQ(set(5, value++), 1);
    value = first;
    for (const auto& [set, get] : fields)
        EXPECT_EQ(get(5), value++);
}

TEST_F(CheckedFields, EachNumberIsItsOwn) {
    ComPortParms port = portParms();
    setApart({{CSetPortParmBaud, CGetPortParmBaudrate},
              {CSetPortParmParity, CGetPortParmParity},
              {CSetPortParmData_bits, CGetPortParmData_bits},
              {CSetPortParmStop_bits, CGetPortParmStop_bits},
              {CSetPortParmXflow, CGetPortParmXflow},
              {ComFlushTime, CGetPortParmFlushTime},
              {CSetPortParmBreakTime, CGetPortParmBreakTime},
              {CSetPortParmDTRTime, CGetPortParmDTRTime},
              {CSetPortParmYield, CGetPortParmYield}},
             101);
    port.baudRate = 101, port.parityCode = 102, port.dataBits = 103, port.stopCode = 104, port.xonXoff = 105;
    port.flushDelay = 106, port.breakTime = 107, port.dtrPulseTime = 108, port.yield = 109;
    const ComPortParms now = portParms();
    EXPECT_EQ(std::memcmp(&now, &port, sizeof port), 0) << "and no other field has changed";
    port.rxBufSize = 55, port.txBufSize = 66;
    EXPECT_EQ(ComSetPortParms(5, &port), 1);
    EXPECT_EQ(CGetPortParmIbuf(5) * 100 + CGetPortParmObuf(5), 5566);

    setApart({{CSetAsciiParmStripLF, CGetAsciiParmStripLF},
              {CSetAsciiParmAddCR, CGetAsciiParmAddCR},
              {CSetAsciiParmCharDelay, CGetAsciiParmCharDelay},
              {CSetAsciiParmLineDelay, CGetAsciiParmLineDelay},
              {CSetModemParmDialTime, CGetModemParmDialTime}},
             -3);
    ComAsciiParms ascii{};
    EXPECT_EQ(ComGetAsciiParms(5, &ascii), 1);
    EXPECT_EQ(ascii.stripLF * 1000 + ascii.addCR * 100 + ascii.charDelay * 10 + ascii.lineDelay, -3210);
}

TEST_F(CheckedFields, EachTextIsItsOwnAndCutToItsField) {
    const std::vector<std::pair<TextSetter, TextGetter>> fields{
        {CSetModemParmDialStr, CGetModemParmDialStr},
        {CSetModemParmDiscStr, CGetModemParmDiscStr},
        {CSetModemParmResetStr, CGetModemParmResetStr},
        {CSetModemParmSetAA, CGetModemParmSetAA},
        {CSetModemParmUnsetAA, CGetModemParmUnsetAA},
        {CSetModemInitStr, CGetModemInitStr},
        {CSetModemParmCompression_ON, CGetModemParmCompression_ON},
        {CSetModemParmCompression_OFF, CGetModemParmCompression_OFF},
        {CSetModemParmFlowControl_OFF, CGetModemParmFlowControl_OFF},
        {CSetModemParmFlowControl_HDWR, CGetModemParmFlowControl_HDWR},
        {CSetModemParmFlowControl_SOFT, CGetModemParmFlowControl_SOFT},
        {CSetModemParmErrorControl_ON, CGetModemParmErrorControl_ON},
        {CSetModemParmErrorControl_OFF, CGetModemParmErrorControl_OFF},
        {CSetModemParmErrorControl_FORCED, CGetModemParmErrorControl_FORCED}};
    constexpr std::size_t init = 5; // it alone is longer
    for (std::size_t i = 0; i < fields.size(); ++i)
        EXPECT_EQ(fields[i].first(5, std::string(120, static_cast<char>('a' + i)).c_str()), 1);
    std::string record; // the letter of each field as it stands in the record, and how long it is
    ComModemParms parms{};
    ASSERT_EQ(ComGetModemParms(5, &parms), 1);
    for (const char* text = parms.dialStr; text < parms.modemName; text += std::strlen(text) + 1)
        record += *text + std::to_string(std::strlen(text));
    EXPECT_EQ(record, "a31b31c31d31e31f99g31h31i31j31k31l31m31n31");
    EXPECT_STREQ(parms.modemName, "Hayes Compatible Standard");

    for (std::size_t i = 0; i < fields.size(); ++i) {
        EXPECT_EQ(fields[i].first(5, nullptr) + fields[i].second(5, nullptr), -2);
        EXPECT_EQ(fields[i].first(5, i % 2 == 0 ? "" : "short"), 1);
        std::string buffer(120, '?');
        EXPECT_EQ(fields[i].second(5, buffer.data()), 1);
        std::string expected = i % 2 == 0 ? "" : "short";
        expected.resize(i == init ? 100 : 32, '\0');
        expected.resize(120, '?');
        EXPECT_EQ(buffer, expected) << "zeros behind the text, nothing behind the field";
    }
}

TEST_F(CheckedFields, SettingAppliesTheFramingWhicheverFieldItIs) {
    for (const Setter set : {CSetPortParmBaud, ComFlushTime}) {
        driver.forgetCalls();
        EXPECT_EQ(set(5, 50), 1);
        EXPECT_TRUE(driver.settings().starts_with("purge f\nsetLineState")) << driver.settings();
        EXPECT_EQ(driver.lineState().baudRate, 9600U) << "only noted";
    }
    driver.forgetCalls();
    EXPECT_EQ(CSetAsciiParmAddCR(5, 0) + CSetModemInitStr(5, "ATZ") + CSetModemParmDialTime(5, 1), 3);
    EXPECT_EQ(driver.settings(), "");
}

TEST_F(CheckedFields, ThreadsThatChangeDifferentFieldsUndoNothing) {
    driver.delay(ScriptedDriver::Call::purge, std::chrono::milliseconds(1)); // time to come between
    // What each thread sets, in turns; each leaves the last.
    struct Turns {
        Setter set;
        std::array<int32_t, 2> values;
    };
    std::vector<std::thread> threads;
    for (const Turns& turns : {Turns{CSetPortParmParity, {2, 3}}, Turns{CSetPortParmData_bits, {7, 5}},
                               Turns{CSetPortParmStop_bits, {1, 2}}, Turns{CSetPortParmBreakTime, {1, 77}}})
        threads.emplace_back([turns] {
            for (int32_t turn = 0; turn < 60; ++turn)
                EXPECT_EQ(turns.set(5, turns.values[static_cast<std::size_t>(turn % 2)]), 1);
        });
    for (std::thread& thread : threads)
        thread.join();
    const ComPortParms parms = portParms();
    EXPECT_EQ(parms.parityCode * 1000 + parms.dataBits * 100 + parms.stopCode * 10, 3520);
    EXPECT_EQ(parms.breakTime, 77);
    const ComHostLineState line = driver.lineState();
    EXPECT_EQ(line.parity * 100 + line.dataBits * 10 + line.stopBits, 252) << "as it stands in the record";
}

} // namespace

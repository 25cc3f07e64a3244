// The checked interface: that each call reaches the function of its name with its arguments in their places; that
// each pair of accessors has its own field, and what a change of one does.
#include <cstring>

#include "support/open_port.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

std::string called; ///< the functions in the place of a port's own, and what they were given
char text[] = "words";

template <char Letter> int32_t note(int32_t port) {
    called += Letter + std::to_string(port) + ' ';
    return Letter;
}
template <char Letter> int32_t noteValue(int32_t port, int32_t value) {
    called += Letter + std::to_string(port) + ':' + std::to_string(value) + ' ';
    return Letter;
}
int32_t noteParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits) {
    return noteValue<'p'>(port, parity * 100 + dataBits * 10 + stopBits);
}
int32_t giveBytes(int32_t, void* buffer, int32_t count) {
    *static_cast<char*>(buffer) = 'G';
    return count;
}
int32_t takeBytes(int32_t, const void* buffer, int32_t count) {
    called.append(static_cast<const char*>(buffer), static_cast<std::size_t>(count));
    return count;
}

using Results = std::vector<int32_t>;

TEST(CheckedCalls, ReachTheFunctionOfTheirNameOnAnOpenPort) {
    const FastClock fast;
    ASSERT_GE(ComVirtualOpen(9), 1);
    ComSetComBreakFunc(9, note<'b'>), ComSetComCarrierFunc(9, note<'c'>), ComSetComDTRFunc(9, note<'d'>);
    ComSetComFlushFunc(9, note<'f'>), ComSetComRingFunc(9, note<'r'>), ComSetComStatusFunc(9, note<'s'>);
    ComSetComSetBaudFunc(9, noteValue<'B'>), ComSetComSetFlowFunc(9, noteValue<'F'>);
    ComSetComSetParmsFunc(9, noteParms), ComSetComReadFunc(9, giveBytes), ComSetComWriteFunc(9, takeBytes);
    CSetModemParmResetStr(9, "Z"), CSetModemParmDiscStr(9, "H"), CSetModemParmDialStr(9, "D");
    CSetModemParmSetAA(9, "A"), CSetModemParmUnsetAA(9, "U");
    // CSetStop gives 1 whatever the function says.
    EXPECT_EQ((Results{CBreak(9),      CCarrier(9),       CDTR(9),
                       CFlush(9),      CRing(9),          CStatus(9),
                       CGetc(9),       CSetBaud(9, 1200), CSetFlow(9, 4),
                       CSetPar(9, 3),  CSetBits(9, 7),    CSetParms(9, 2, 6, 1),
                       CSetStop(9, 2), CRead(9, text, 3), CWrite(9, text, 4),
                       CPutc(9, '!'),  CPuts(9, "s|"),    CReset(9),
                       CDisc(9),       CSetAns(9, 1),     CSetAns(9, 0),
                       CDial(9, "55"), CBuffer(9, 5)}),
              (Results{'b', 'c', 'd', 'f', 'r', 's', 'G', 'B', 'F', 'p', 'p', 'p',
                       1,   3,   4,   1,   1,   1,   1,   1,   1,   1,   1}));
    EXPECT_EQ(called, "b9 c9 d9 f9 r9 s9 B9:1200 F9:4 p9:300 p9:70 p9:261 p9:2 Gord!s\rZHAUD55\r");
    ComVirtualClose(9);
}

TEST(CheckedCalls, OpenTakesDataBitsFirstAndFixedRings) {
    const FastClock fast;
    ScriptedDriver driver;
    ComHostMapDevice(6, driver.path().c_str());
    for (const auto open : {COpen, COpen2}) {
        ASSERT_EQ(open(6, 4800, 7, 3, 2), 6);
        const ComHostLineState line = driver.lineState();
        EXPECT_EQ(line.baudRate, 4800U);
        EXPECT_EQ(line.dataBits * 100 + line.parity * 10 + line.stopBits, 722) << "seven, even, two";
        EXPECT_EQ((Results{CGetPortParmIbuf(6), CGetPortParmObuf(6)}), Results(2, 4096));
        driver.forgetCalls();
        EXPECT_EQ(open(6, 300, 8, 1, 1), -1) << "open already";
        EXPECT_EQ(driver.settings(), "");
        EXPECT_EQ(CGetPortParmBaudrate(6), 4800);
        EXPECT_EQ(CClose(6), 1);
        EXPECT_EQ(open(6, 9600, 8, 6, 1), -33) << "other failures as they are";
    }
}

TEST(CheckedCalls, HowArgumentsArrive) {
    EXPECT_EQ((Results{Ctest(), Ctestint(1), Cteststring("ABC"), Ctest3string("ABC", "DEF", "GHI"),
                       Ctest1string(1, "ABC", 3)}),
              Results(5, 0));
    EXPECT_EQ((Results{Ctestint(2), Cteststring("abc"), Cteststring("ABCD"), Ctest1string(3, "ABC", 1),
                       Ctest3string("ABC", "DEF", "ghi"), Ctest3string("ABC", "GHI", "GHI"),
                       Ctest3string("DEF", "DEF", "GHI")}),
              Results(7, -1));
}

TEST(CheckedCalls, YieldHandlesMessagesUntilTheTimeIsOver) {
    const FastClock fast;
    int32_t handled = 0;
    const int32_t window = ComHostCreateWindow(
        [](void* count, int32_t, uint32_t, uintptr_t, intptr_t) { ++*static_cast<int32_t*>(count); },
        &handled);
    std::thread poster([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        ComHostPostMessage(window, 1000, 0, 0);
    });
    const uint32_t start = brisolt::clock::ticks();
    EXPECT_EQ(Ctestyield(100), 1);
    EXPECT_GE(brisolt::clock::ticks() - start, 100'000U);
    EXPECT_EQ(handled, 1) << "while it waits";
    poster.join();
    ComHostDestroyWindow(window);
}

// ---- single fields

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
void setApart(const std::vector<Setter>& setters, const std::vector<Getter>& getters, int32_t first) {
    for (std::size_t i = 0; i < setters.size(); ++i)
        EXPECT_EQ(setters[i](5, first + static_cast<int32_t>(i)), 1);
    for (std::size_t i = 0; i < setters.size(); ++i)
        EXPECT_EQ(getters[i](5), first + static_cast<int32_t>(i));
}

TEST_F(CheckedFields, EachNumberIsItsOwn) {
    ComPortParms port = portParms();
    setApart({CSetPortParmBaud, CSetPortParmParity, CSetPortParmData_bits, CSetPortParmStop_bits,
              CSetPortParmXflow, ComFlushTime, CSetPortParmBreakTime, CSetPortParmDTRTime, CSetPortParmYield},
             {CGetPortParmBaudrate, CGetPortParmParity, CGetPortParmData_bits, CGetPortParmStop_bits,
              CGetPortParmXflow, CGetPortParmFlushTime, CGetPortParmBreakTime, CGetPortParmDTRTime,
              CGetPortParmYield},
             101);
    port.baudRate = 101, port.parityCode = 102, port.dataBits = 103, port.stopCode = 104, port.xonXoff = 105;
    port.flushDelay = 106, port.breakTime = 107, port.dtrPulseTime = 108, port.yield = 109;
    const ComPortParms now = portParms();
    EXPECT_EQ(std::memcmp(&now, &port, sizeof port), 0) << "and no other field has changed";
    port.rxBufSize = 55, port.txBufSize = 66;
    ComSetPortParms(5, &port);
    EXPECT_EQ((Results{CGetPortParmIbuf(5), CGetPortParmObuf(5)}), (Results{55, 66}));

    setApart({CSetAsciiParmStripLF, CSetAsciiParmAddCR, CSetAsciiParmCharDelay, CSetAsciiParmLineDelay,
              CSetModemParmDialTime},
             {CGetAsciiParmStripLF, CGetAsciiParmAddCR, CGetAsciiParmCharDelay, CGetAsciiParmLineDelay,
              CGetModemParmDialTime},
             -3);
    ComAsciiParms ascii{};
    EXPECT_EQ(ComGetAsciiParms(5, &ascii), 1);
    EXPECT_EQ((Results{ascii.stripLF, ascii.addCR, ascii.charDelay, ascii.lineDelay}),
              (Results{-3, -2, -1, 0}));
}

TEST_F(CheckedFields, EachTextIsItsOwnAndCutToItsField) {
    const std::vector<TextSetter> setters{CSetModemParmDialStr,          CSetModemParmDiscStr,
                                          CSetModemParmResetStr,         CSetModemParmSetAA,
                                          CSetModemParmUnsetAA,          CSetModemInitStr,
                                          CSetModemParmCompression_ON,   CSetModemParmCompression_OFF,
                                          CSetModemParmFlowControl_OFF,  CSetModemParmFlowControl_HDWR,
                                          CSetModemParmFlowControl_SOFT, CSetModemParmErrorControl_ON,
                                          CSetModemParmErrorControl_OFF, CSetModemParmErrorControl_FORCED};
    const std::vector<TextGetter> getters{CGetModemParmDialStr,          CGetModemParmDiscStr,
                                          CGetModemParmResetStr,         CGetModemParmSetAA,
                                          CGetModemParmUnsetAA,          CGetModemInitStr,
                                          CGetModemParmCompression_ON,   CGetModemParmCompression_OFF,
                                          CGetModemParmFlowControl_OFF,  CGetModemParmFlowControl_HDWR,
                                          CGetModemParmFlowControl_SOFT, CGetModemParmErrorControl_ON,
                                          CGetModemParmErrorControl_OFF, CGetModemParmErrorControl_FORCED};
    for (std::size_t i = 0; i < setters.size(); ++i)
        EXPECT_EQ(setters[i](5, std::string(120, static_cast<char>('a' + i)).c_str()), 1);
    std::string record; // the letter of each field as it stands in the record, and how long it is
    ComModemParms parms{};
    ASSERT_EQ(ComGetModemParms(5, &parms), 1);
    for (const char* field = parms.dialStr; field < parms.modemName; field += std::strlen(field) + 1)
        record += *field + std::to_string(std::strlen(field));
    EXPECT_EQ(record, "a31b31c31d31e31f99g31h31i31j31k31l31m31n31");
    EXPECT_STREQ(parms.modemName, "Hayes Compatible Standard");

    for (std::size_t i = 0; i < setters.size(); ++i) {
        std::string buffer(120, '?'), expected = "short";
        EXPECT_EQ((Results{setters[i](5, "short"), getters[i](5, buffer.data())}), (Results{1, 1}));
        expected.resize(i == 5 ? 100 : 32, '\0'); // the initialisation alone is longer
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
    CSetAsciiParmAddCR(5, 0), CSetModemInitStr(5, "ATZ"), CSetModemParmDialTime(5, 1);
    EXPECT_EQ(driver.settings(), "");
}

TEST_F(CheckedFields, ThreadsThatChangeDifferentFieldsUndoNothing) {
    driver.delay(ScriptedDriver::Call::purge, std::chrono::milliseconds(1)); // time to come between
    const std::tuple<Setter, int32_t, int32_t> fields[] = {{CSetPortParmParity, 2, 3},
                                                           {CSetPortParmData_bits, 7, 5},
                                                           {CSetPortParmStop_bits, 1, 2},
                                                           {CSetPortParmBreakTime, 1, 77}};
    std::vector<std::jthread> threads;
    for (const auto& field : fields)
        threads.emplace_back([field] {
            const auto& [set, first, last] = field;
            for (int32_t turn = 0; turn < 30; ++turn)
                EXPECT_EQ((Results{set(5, first), set(5, last)}), Results(2, 1));
        });
    threads.clear();
    const ComPortParms parms = portParms();
    EXPECT_EQ((Results{parms.parityCode, parms.dataBits, parms.stopCode, parms.breakTime}),
              (Results{3, 5, 2, 77}));
    const ComHostLineState line = driver.lineState();
    EXPECT_EQ(line.parity * 100 + line.dataBits * 10 + line.stopBits, 252) << "as it stands in the record";
}

} // namespace

// Checked calls: that each reaches the function of its name with its arguments in their places, and none a
// port that is not open.
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "port/ports.h"
#include "support/scripted_driver.h"

using namespace brisolt::test;

namespace {

std::string called; ///< the functions in the place of a port's own, and what they were given

template <char Letter> int32_t note(int32_t port) {
    called += Letter + std::to_string(port) + ' ';
    return Letter;
}
template <char Letter> int32_t noteValue(int32_t port, int32_t value) {
    called += Letter + std::to_string(port) + ':' + std::to_string(value) + ' ';
    return Letter;
}
int32_t noteParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits) {
    called +=
        'p' + std::to_string(port) + ':' + std::to_string(parity * 100 + dataBits * 10 + stopBits) + ' ';
    return 'p';
}
int32_t giveBytes(int32_t, void* buffer, int32_t count) {
    *static_cast<char*>(buffer) = 'G';
    return count;
}
int32_t takeBytes(int32_t, const void* buffer, int32_t count) {
    called.append(static_cast<const char*>(buffer), static_cast<std::size_t>(count));
    return count;
}

TEST(CheckedCalls, ReachTheFunctionOfTheirName) {
    const FastClock fast;
    ASSERT_GE(ComVirtualOpen(9), 1);
    ComSetComBreakFunc(9, note<'b'>), ComSetComCarrierFunc(9, note<'c'>), ComSetComDTRFunc(9, note<'d'>);
    ComSetComFlushFunc(9, note<'f'>), ComSetComRingFunc(9, note<'r'>), ComSetComStatusFunc(9, note<'s'>);
    ComSetComSetBaudFunc(9, noteValue<'B'>), ComSetComSetFlowFunc(9, noteValue<'F'>);
    ComSetComSetParmsFunc(9, noteParms);
    EXPECT_EQ(CBreak(9), 'b');
    EXPECT_EQ(CCarrier(9), 'c');
    EXPECT_EQ(CDTR(9), 'd');
    EXPECT_EQ(CFlush(9), 'f');
    EXPECT_EQ(CRing(9), 'r');
    EXPECT_EQ(CStatus(9), 's');
    EXPECT_EQ(CSetBaud(9, 1200), 'B');
    EXPECT_EQ(CSetFlow(9, 4), 'F');
    EXPECT_EQ(called, "b9 c9 d9 f9 r9 s9 B9:1200 F9:4 ");
    called.clear();
    EXPECT_EQ(CSetPar(9, 3) + CSetBits(9, 7) + CSetParms(9, 2, 6, 1), 3 * 'p');
    EXPECT_EQ(CSetStop(9, 2), 1) << "whatever the function says";
    EXPECT_EQ(called, "p9:300 p9:70 p9:261 p9:2 ");
    called.clear();

    ComSetComReadFunc(9, giveBytes), ComSetComWriteFunc(9, takeBytes);
    char text[] = "words";
    EXPECT_EQ(CGetc(9), 'G');
    EXPECT_EQ(CRead(9, text, 3), 3);
    EXPECT_STREQ(text, "Gords");
    EXPECT_EQ(CWrite(9, text, 4), 4);
    EXPECT_EQ(CPutc(9, '!') + CPuts(9, "s|"), 2);
    EXPECT_EQ(called, "Gord!s\r");
    called.clear();
    EXPECT_EQ(CSetModemParmResetStr(9, "Z") + CSetModemParmDiscStr(9, "H") + CSetModemParmDialStr(9, "D"), 3);
    EXPECT_EQ(CSetModemParmSetAA(9, "A") + CSetModemParmUnsetAA(9, "U"), 2);
    EXPECT_EQ(CReset(9) + CDisc(9) + CSetAns(9, 1) + CSetAns(9, 0) + CDial(9, "55"), 5);
    EXPECT_EQ(called, "ZHAUD55\r");
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
        EXPECT_EQ(CGetPortParmIbuf(6), 4096);
        EXPECT_EQ(CGetPortParmObuf(6), 4096);
        driver.forgetCalls();
        EXPECT_EQ(open(6, 300, 8, 1, 1), -1) << "open already";
        EXPECT_EQ(driver.settings(), "");
        EXPECT_EQ(CGetPortParmBaudrate(6), 4800);
        EXPECT_EQ(CClose(6), 1);
        EXPECT_EQ(open(6, 9600, 8, 6, 1), -33) << "other failures as they are";
        for (const int32_t bad : {0, -1, 257, INT32_MIN})
            EXPECT_EQ(open(bad, 9600, 8, 1, 1), -1);
    }
}

TEST(CheckedCalls, BadPortsAndNullsGiveMinusOne) {
    using Call = std::function<int32_t(int32_t)>;
    char buffer[100] = "untouched";
    const auto with = [&](auto function, auto... arguments) -> Call {
        return [=](int32_t port) { return function(port, arguments...); };
    };
    // One of each kind: those of a kind are made alike.
    const std::vector<Call> calls{CBreak,
                                  CClose,
                                  with(CRead, buffer, 1),
                                  with(CRecvA, "/no/such/file", 27, 26, 1),
                                  with(CSetParms, 1, 8, 1),
                                  with(CBuffer, 1),
                                  CGetPortParmBaudrate,
                                  with(CSetPortParmParity, 1),
                                  with(CSetModemParmDialTime, 1),
                                  with(CGetModemInitStr, buffer),
                                  with(CSetModemParmDialStr, "1")};
    for (std::size_t i = 0; i < calls.size(); ++i)
        for (const int32_t bad : {0, -1, 257, 8, INT32_MAX, INT32_MIN})
            EXPECT_EQ(calls[i](bad), -1) << i;
    EXPECT_STREQ(buffer, "untouched");

    ASSERT_GE(ComVirtualOpen(9), 1);
    EXPECT_EQ(CDial(9, nullptr) + CPuts(9, nullptr) + CSendA(9, nullptr), -3);
    EXPECT_EQ(CRecvA(9, nullptr, 27, 26, 1), -1);
    EXPECT_EQ(CBuffer(9, 5), 1);
    ComVirtualClose(9);
}

TEST(CheckedCalls, HowArgumentsArrive) {
    EXPECT_EQ(Ctest() + Ctestint(1) + Cteststring("ABC") + Ctest3string("ABC", "DEF", "GHI") +
                  Ctest1string(1, "ABC", 3),
              0);
    EXPECT_EQ(Ctestint(2) + Cteststring("abc") + Cteststring("ABCD") + Cteststring(nullptr), -4);
    EXPECT_EQ(Ctest3string("ABC", "DEF", "ghi") + Ctest3string("ABC", "GHI", "GHI") +
                  Ctest3string("DEF", "DEF", "GHI") + Ctest1string(3, "ABC", 1) + Ctest1string(1, nullptr, 3),
              -5);
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
    EXPECT_EQ(Ctestyield(10), 1);
    EXPECT_GE(brisolt::clock::ticks() - start, 10'000U);
    EXPECT_EQ(handled, 1) << "while it waits";
    poster.join();
    ComHostDestroyWindow(window);
}

} // namespace

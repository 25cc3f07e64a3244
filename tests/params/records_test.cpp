// The parameter records of an open port: what a set brings to the port and its device, and the functions that
// travel as words.
#include <atomic>
#include <cstring>

#include "support/open_port.h"
#include "support/scripted_driver.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

class Records : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(openOn(5, driver.path()), 5);
        ASSERT_EQ(ComGetPortParms(5, &parms), 1);
    }
    void TearDown() override { ComClose(5); }
    ComPortParms readBack() {
        ComPortParms now;
        std::memset(&now, 0xEE, sizeof now);
        EXPECT_EQ(ComGetPortParms(5, &now), 1);
        return now;
    }

    const FastClock fast;
    ScriptedDriver driver;
    ComPortParms parms{};
};

template <class Parms> bool same(const Parms& a, const Parms& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}
template <class Function> uint32_t wordOf(Function* function) {
    return ComHostFunctionWord(reinterpret_cast<void (*)()>(function));
}

TEST_F(Records, WhatIsSetComesBack) {
    std::strcpy(parms.deviceName, "LINE");
    parms.rxBufSize = 102, parms.txBufSize = 103, parms.portDelayInterval = 108, parms.scrambleOn = 109;
    parms.escapeChar = 200, parms.scrambleKey = 201, parms.reserved = 7, parms.openTick = 4'000'000'000U;
    ASSERT_EQ(ComSetPortParms(5, &parms), 1);
    EXPECT_TRUE(same(readBack(), parms));

    ComModemParms modem{}, back{};
    for (std::size_t i = 4; i < sizeof modem; ++i)
        reinterpret_cast<char*>(&modem)[i] = static_cast<char>('0' + i % 75);
    ASSERT_EQ(ComSetModemParms(5, &modem), 1);
    EXPECT_EQ(recordOf(5).unsetAAStr, std::string(modem.unsetAAStr, 31)) << "without an end: given one";
    EXPECT_EQ(recordOf(5).initStr, std::string(modem.initStr, 99));
    EXPECT_EQ(ComGetModemParms(5, &modem), 1);
    std::strcpy(modem.dialStr, "ATDP");
    EXPECT_EQ(ComSetModemParms(5, &modem), 1);
    EXPECT_EQ(ComGetModemParms(5, &back), 1);
    EXPECT_TRUE(same(back, modem)) << "also what stands behind the end of a text";
}

int32_t deliverX(int32_t, void* buffer, int32_t) {
    *static_cast<char*>(buffer) = 'X';
    return 1;
}
std::vector<int32_t> seenParms;
int32_t noteParms(int32_t port, int32_t parity, int32_t dataBits, int32_t stopBits) {
    seenParms = {port, parity, dataBits, stopBits};
    return -1;
}
int32_t escapeAt(int32_t port, int32_t character) {
    return port * 1000 + character;
}

std::atomic<int32_t> told{0};
int32_t tell(int32_t port) {
    told = port;
    return 0;
}

TEST_F(Records, FunctionsSurviveReadingAndWritingBack) {
    ComSetComReadFunc(5, deliverX), ComSetComSetParmsFunc(5, noteParms);
    parms = readBack();
    EXPECT_EQ(uint32_t{parms.readFunc}, wordOf(deliverX)); // by value: it stands on no boundary
    parms.anyCharCallback = wordOf(tell);
    parms.escapeFunc = wordOf(escapeAt); // the last word there is
    driver.forgetCalls();
    EXPECT_EQ(ComSetPortParms(5, &parms), 1) << "whatever the function says";
    EXPECT_EQ(seenParms, (std::vector<int32_t>{5, 1, 8, 1}));
    EXPECT_EQ(driver.settings(), "");
    EXPECT_TRUE(same(readBack(), parms));
    EXPECT_EQ(ComGetc(5), 'X');
    EXPECT_EQ(ComEscape(5, 3), 5003);
    driver.feed("news");
    EXPECT_TRUE(eventually([] { return told == 5; }));

    // Words that the library never issued: no function, whichever field they stand in.
    uint32_t strange = parms.escapeFunc;
    parms.escapeFunc = 0xDEADBEEF;
    for (std::size_t at = offsetof(ComPortParms, breakFunc); at < sizeof parms; at += 4) {
        strange += 1 + strange % 3 * 0x1000'0001;
        std::memcpy(reinterpret_cast<char*>(&parms) + at, &strange, 4);
    }
    EXPECT_EQ(ComSetPortParms(5, &parms), 1);
    const ComPortParms now = readBack();
    EXPECT_EQ(now.escapeFunc | now.breakFunc | now.readFunc | now.setParmsFunc | now.onStringCallback, 0U);
    EXPECT_NE(ComGetc(5), 'X');
    EXPECT_EQ(ComEscape(5, 3), 0);
}

TEST_F(Records, NumbersThatLieHarmNobody) {
    const std::string bytes(5000, 'b'); // more than either ring
    for (const int32_t lie : {INT32_MAX, INT32_MIN, -1, 0}) {
        parms.rxBufSize = parms.txBufSize = parms.portNumber = lie;
        parms.flushDelay = 0;
        EXPECT_EQ(ComSetPortParms(5, &parms), 1);
        driver.feed(bytes);
        EXPECT_EQ(receive(5, bytes.size()), bytes);
        driver.takeAtMost(0);
        EXPECT_LE(send(5, bytes), 2048);
        driver.takeAtMost(ScriptedDriver::always);
        EXPECT_EQ(ComFlush(5), 1);
        EXPECT_EQ(ComFlushOutBuf(5), 1);
        EXPECT_EQ(ComPuts(5, "x"), lie > 0 ? 1 : -1);
        EXPECT_EQ(ComDTR(5), lie > 0 ? 1 : -1);
    }
}

TEST_F(Records, ThreadsThatSetAtOnceDoNotMixTexts) {
    std::atomic<bool> over{false};
    std::vector<std::jthread> threads;
    for (const char letter : {'a', 'b'})
        threads.emplace_back([&, letter] {
            ComPortParms mine = parms;
            ComModemParms modem{};
            std::memset(mine.deviceName, letter, 31);
            std::memset(modem.dialStr, letter, 31);
            while (!over)
                ComSetPortParms(5, &mine), ComSetModemParms(5, &modem);
        });
    for (int32_t round = 0; round < 300; ++round) {
        ComModemParms modem{};
        ComGetModemParms(5, &modem);
        const ComPortParms now = readBack();
        for (const std::string& text : {std::string(now.deviceName), std::string(modem.dialStr)})
            EXPECT_TRUE(text == "test" || text == "COM" || text == "ATDT" || text == std::string(31, text[0]))
                << text;
    }
    over = true;
    threads.clear();
}

} // namespace

// Whole records in profiles: the files as they are written, what stands for absent and impossible values, and
// the way back.
#include <cstring>

#include "params/profile_on_disk.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

const std::string bareSection = "PortDelayInterval=10\nSecurityCode=0x0\nSecurityState=0\n";

template <class Parms> bool same(const Parms& a, const Parms& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}
template <class Parms> Parms filledWith(int byte) {
    Parms parms;
    std::memset(&parms, byte, sizeof parms);
    return parms;
}

TEST(PortProfile, WhatStandsForValuesThatAreNone) {
    // What a key's line loads, as it is written then.
    std::istringstream rows(
        "Speed=abc 9600  Speed=0 9600  Speed= 9600  Speed=0x4B 75  Parity=o odd  Parity=EVEN even "
        "Parity=s space  Parity=odder none  DataBits=9 8  DataBits=4 4  StopBits=1.5 1.5  StopBits=3 1 "
        "FlowControl=RtsCts hardware  FlowControl=xon/xoff software  FlowControl=x none "
        "InputBuffer=500 16384  InputBuffer=1024 1024  OutputBuffer=1000001 16384  FlushTime=0 0 "
        "FlushTime=-1 1  BreakTime=0 20  BreakTime=-3 20  DTRTime=0 10  Yield=maybe 1  Yield=Off 0 "
        "EscapeChar=^[ 0x1b  EscapeChar=\\e 0x65  EscapeChar=0 0x1b  PortDelayInterval=0 10 "
        "SecurityCode=^C 0x3  SecurityState=on 1  Port=COM2 COM2  Port=com COM1  Port=LPT1 COM1 "
        "Port=XYZ0042 COM42  Port=COM12345 COM1234");
    const ProfileOnDisk profile;
    for (std::string line, expected; rows >> line >> expected;) {
        profile.put("[s]\n" + line);
        ComPortParms parms{};
        EXPECT_EQ(ComGetProfPortParms("s", &parms, profile.path()), 1) << line;
        ASSERT_EQ(ComWriteProfPortParms("s", &parms, profile.path(), 1), 1);
        EXPECT_EQ(profile.value("s", line.substr(0, line.find('=')).c_str()), expected) << line;
    }
    profile.put("[s]\nPortDelayInterval=7\nSecurityCode=7\nSecurityState=maybe");
    ComPortParms secret{};
    EXPECT_EQ(ComGetProfPortParms("s", &secret, profile.path()), 1);
    EXPECT_EQ(int32_t{secret.scrambleOn}, 65535); // by value: it stands on no boundary
    EXPECT_EQ(secret.scrambleKey, 0) << "nobody knows whether the link is scrambled";
    EXPECT_EQ(secret.portNumber, 1) << "that is another key";

    const auto untouched = filledWith<ComPortParms>(0x77);
    for (const char* refused : {"Port=COMA", "Port=", "Port=LPT", "Port=CO", "Port=/dev/ttyUSB0",
                                "Parity=", "StopBits=\"\"", "FlowControl= "}) {
        profile.put(std::string("[s]\nSpeed=300\n") + refused);
        ComPortParms parms = untouched;
        EXPECT_EQ(ComGetProfPortParms("s", &parms, profile.path()), 0) << refused;
        EXPECT_TRUE(same(parms, untouched)) << refused;
    }
}

TEST(PortProfile, RoundTrip) {
    const ProfileOnDisk profile("[Line]\nSpeed=1\nMine = 1\n");
    auto parms = filledWith<ComPortParms>(0);
    std::strcpy(parms.deviceName, "COM200");
    parms.portNumber = 200, parms.baudRate = 115200, parms.parityCode = 5, parms.dataBits = 7;
    parms.stopCode = 3, parms.xonXoff = 1, parms.rxBufSize = 2048, parms.txBufSize = 4096;
    parms.flushDelay = 2, parms.breakTime = 20, parms.dtrPulseTime = 10, parms.escapeChar = 1;
    parms.portDelayInterval = 11, parms.scrambleKey = 0xFF, parms.scrambleOn = 1;
    ASSERT_EQ(ComWriteProfPortParms("Line", &parms, profile.path(), 0), 1);
    EXPECT_EQ(profile.text(), "[Line]\nSpeed=115200\nMine = 1\nPort=COM200\nParity=space\nDataBits=7\n"
                              "StopBits=1.5\nFlowControl=software\nInputBuffer=2048\nOutputBuffer=4096\n"
                              "FlushTime=2\nBreakTime=20\nDTRTime=10\nYield=0\nEscapeChar=0x1\n"
                              "PortDelayInterval=11\nSecurityCode=0xff\nSecurityState=1\n");
    ComPortParms again{};
    ASSERT_EQ(ComGetProfPortParms("Line", &again, profile.path()), 1);
    again.openTick = parms.openTick;
    EXPECT_TRUE(same(again, parms));

    // Back to the defaults: what an absent key means is taken out, unless everything is asked for.
    parms = filledWith<ComPortParms>(0x77);
    const uint32_t before = clock::ticks();
    ASSERT_EQ(ComGetProfPortParms("none", &parms, profile.path("no file").c_str()), 1);
    EXPECT_LE(parms.openTick - before, clock::ticks() - before);
    EXPECT_EQ(parms.reserved, 0x77777777) << "the caller's";
    EXPECT_EQ(parms.escapeFunc & parms.breakFunc & parms.onStringCallback, 0x77777777U);
    ASSERT_EQ(ComWriteProfPortParms("Line", &parms, profile.path(), 0), 1);
    EXPECT_EQ(profile.text(), "[Line]\nMine = 1\n" + bareSection);
    profile.put("");
    ASSERT_EQ(ComWriteProfPortParms("All", &parms, profile.path(), 1), 1);
    EXPECT_EQ(profile.text(), "[All]\nPort=COM1\nSpeed=19200\nParity=none\nDataBits=8\nStopBits=1\n"
                              "FlowControl=hardware\nInputBuffer=16384\nOutputBuffer=16384\nFlushTime=1\n"
                              "BreakTime=25\nDTRTime=100\nYield=1\nEscapeChar=0x1b\n" +
                                  bareSection);

    parms.parityCode = 9, parms.stopCode = 0, parms.xonXoff = 5, parms.yield = 8, parms.scrambleOn = 65535;
    profile.put("");
    ASSERT_EQ(ComWriteProfPortParms("Codes", &parms, profile.path(), 0), 1);
    EXPECT_EQ(profile.text(), "[Codes]\nParity=none\nStopBits=1\nFlowControl=none\nYield=1\n"
                              "PortDelayInterval=10\nSecurityCode=0x0\nSecurityState=1\n");
}

TEST(ModemProfile, DefaultsRefusalsAndRoundTrip) {
    const ProfileOnDisk profile;
    const char* const path = profile.path();
    auto parms = filledWith<ComModemParms>('x');
    ASSERT_EQ(ComGetProfModemParms("M", &parms, path), 1);
    ASSERT_EQ(ComWriteProfModemParms("M", &parms, path, 0), 1);
    const std::string nine =
        "M_Compression_ON_String=ATS46=138|\nM_Compression_Off_String=ATS46=136|\n"
        "M_FlowControl_Off=AT&K0|\nM_FlowControl_HDWR=AT&K3|\nM_FlowControl_SOFT=AT&K4|\n"
        "M_ErrorControl_ON=AT&Q5S36=7S48=7|\nM_ErrorControl_OFF=AT&Q6S36=3S48=128|\n"
        "M_ErrorControl_FORCED=AT&Q5S36=4S48=7|\nM_Modem_Name=Hayes Compatible Standard\n";
    EXPECT_EQ(profile.text(), "[M]\n" + nine);
    ASSERT_EQ(ComWriteProfModemParms("All", &parms, path, 1), 1);
    EXPECT_EQ(profile.text(), "[M]\n" + nine +
                                  "\n[All]\nM_Initialization=AT&F&C1&D2|\nM_DialString=ATDT\n"
                                  "M_DisconnectString=+++~~~ATH0|\nM_AutoAnswerOffString=ATS0=0|\n"
                                  "M_AutoAnswerOnString=ATS0=1|\nM_ResetString=ATZ|\n" +
                                  nine + "M_DialTime=60\n");

    std::strcpy(parms.dialStr, "atdt"); // letter case counts
    strncpy(parms.modemName, " \"Best\" ", sizeof parms.modemName);
    std::memset(parms.initStr, 'i', sizeof parms.initStr); // without an end: cut to its field
    parms.dialTimeout = 61;
    ASSERT_EQ(ComWriteProfModemParms("M", &parms, path, 0), 1);
    ComModemParms again{};
    ASSERT_EQ(ComGetProfModemParms("M", &again, path), 1);
    parms.initStr[99] = 0;
    EXPECT_TRUE(same(again, parms));

    ASSERT_EQ(ComWriteProfString("M", "M_ResetString", std::string(40, 'r').c_str(), path), 1);
    ASSERT_EQ(ComGetProfModemParms("M", &again, path), 1);
    EXPECT_EQ(again.resetStr, std::string(31, 'r'));
    const ComModemParms untouched = again;
    for (const char* line : {"M_DialTime=0", "M_ResetString=", "M_Modem_Name=''"}) {
        profile.put(std::string("[M]\nM_DialString=ATDP\n") + line);
        EXPECT_EQ(ComGetProfModemParms("M", &again, path), 0) << line;
        EXPECT_TRUE(same(again, untouched));
    }
    std::strcpy(parms.discStr, "two\rlines");
    EXPECT_EQ(ComWriteProfModemParms("M", &parms, path, 1), 0);
    EXPECT_EQ(profile.text(), "[M]\nM_DialString=ATDP\nM_Modem_Name=''") << "all or nothing";
}

} // namespace

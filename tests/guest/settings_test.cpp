// What an open and every setting make of a real line, as the kernel and the UART's own registers tell it.
#include <array>
#include <vector>

#include <gtest/gtest.h>

#include "guest.h"

using namespace brisolt::test;

namespace {

/// The words of `wanted` that are missing in what stty says.
std::string missing(const std::string& path, const std::vector<std::string>& wanted) {
    const std::string words = stty(path);
    std::string absent;
    for (const std::string& word : wanted)
        if (words.find(' ' + word + ' ') == std::string::npos)
            absent += word + ' ';
    return absent.empty() ? absent : absent + "in" + words;
}

TEST(Settings, AnOpenLineCarriesPlainBytes) {
    const Port port(uart);
    EXPECT_EQ(
        missing(uart, {"speed 9600 baud", "cs8", "-parenb", "-cstopb", "clocal", "cread", "-crtscts", "-ixon",
                       "-ixoff", "-icanon", "-echo", "-isig", "-opost", "-icrnl", "-istrip", "ignbrk"}),
        "");
    EXPECT_EQ(uartRegister(modemControl) & 3, 3) << "DTR and RTS are up";
}

TEST(Settings, EveryFramingReachesTheUart) {
    const Port port(uart);
    constexpr std::array<uint8_t, 5> parityBits{0x00, 0x08, 0x18, 0x28, 0x38};
    const std::array<std::vector<std::string>, 5> parityWords{{{"-parenb"},
                                                               {"parenb", "parodd", "-cmspar"},
                                                               {"parenb", "-parodd", "-cmspar"},
                                                               {"parenb", "parodd", "cmspar"},
                                                               {"parenb", "-parodd", "cmspar"}}};
    for (int32_t parity = 1; parity <= 5; ++parity) {
        for (int32_t dataBits = 5; dataBits <= 8; ++dataBits)
            for (int32_t stopBits = 1; stopBits <= 3; ++stopBits) {
                ASSERT_EQ(ComSetParms(port, parity, dataBits, stopBits), 1);
                const uint8_t now = uartRegister(lineControl);
                EXPECT_EQ(now & (parity == 1 ? 0x0F : 0x3F), // without parity its kind means nothing
                          (dataBits - 5) | (stopBits == 1 ? 0 : 4) |
                              parityBits[static_cast<size_t>(parity - 1)])
                    << "parity " << parity << ", data bits " << dataBits << ", stop bits " << stopBits;
            }
        EXPECT_EQ(missing(uart, parityWords[static_cast<size_t>(parity - 1)]), "");
    }
}

TEST(Settings, EveryFlowModeReachesTheKernel) {
    const Port port(uart);
    const std::array<std::vector<std::string>, 6> words{{{"crtscts", "-ixon", "-ixoff"},
                                                         {"-crtscts", "ixon", "ixoff"},
                                                         {"-crtscts", "-ixon", "-ixoff"},
                                                         {"-crtscts", "-ixon", "-ixoff"},
                                                         {"crtscts", "-ixon", "-ixoff"},
                                                         {"-crtscts", "ixon", "ixoff"}}};
    for (const int32_t mode : {0, 1, 2, 3, 4, 5}) {
        ComClearDTR(port);
        ComClearRTS(port);
        EXPECT_EQ(uartRegister(modemControl) & 3, 0);
        ASSERT_EQ(ComSetFlow(port, mode), 1);
        EXPECT_EQ(missing(uart, words[static_cast<size_t>(mode)]), "") << "mode " << mode;
        EXPECT_EQ(uartRegister(modemControl) & 3, 3) << "mode " << mode;
    }
}

const std::vector<uint32_t> baudRates{
    50,     75,     110,    134,    150,     200,     300,     600,     1200,    1800,    2400,    4800,
    9600,   12345,  14400,  19200,  28800,   38400,   57600,   76800,   115200,  128000,  230400,  250000,
    460800, 500000, 576000, 921600, 1000000, 1152000, 1500000, 2000000, 2500000, 3000000, 3500000, 4000000};

/// What this device makes of the rates when it is simply asked for them.
std::vector<uint32_t> kernelsAnswer(const std::string& path) {
    const Tty tty(path);
    std::vector<uint32_t> answers;
    for (const uint32_t rate : baudRates) {
        termios2 wanted = tty.settings();
        constexpr tcflag_t rateBits = CBAUD | (tcflag_t{CBAUD} << IBSHIFT);
        wanted.c_cflag = (wanted.c_cflag & ~rateBits) | BOTHER | (tcflag_t{BOTHER} << IBSHIFT);
        wanted.c_ospeed = wanted.c_ispeed = rate;
        EXPECT_TRUE(tty.set(wanted));
        answers.push_back(tty.settings().c_ospeed);
    }
    return answers;
}

class BaudRates : public testing::TestWithParam<const char*> {};

TEST_P(BaudRates, AreWhatTheDeviceCanDo) {
    const std::vector<uint32_t> answers = kernelsAnswer(GetParam());
    const Port port(GetParam());
    const Tty witness(GetParam(), Tty::As::witness);
    for (std::size_t i = 0; i < baudRates.size(); ++i) {
        EXPECT_EQ(ComSetBaud(port, static_cast<int32_t>(baudRates[i])), 1);
        const termios2 now = witness.settings();
        EXPECT_EQ(now.c_ospeed, answers[i]) << "asked for " << baudRates[i];
        EXPECT_EQ(now.c_ispeed, answers[i]) << "asked for " << baudRates[i];
    }
}

INSTANTIATE_TEST_SUITE_P(Of, BaudRates, testing::Values(uart, usbModem, adapter),
                         [](const auto& device) { return std::string(device.param + sizeof "/dev"); });

TEST(Settings, BytesPassAtEveryRateAndFraming) {
    const Tty far(otherUart);
    const Port port(uart);
    for (const int32_t rate : {50, 300, 9600, 115200, 4000000}) {
        ComSetBaud(port, rate);
        EXPECT_EQ(send(port, "out"), 3) << rate;
        EXPECT_EQ(far.read(3), "out") << rate;
        far.write("in");
        EXPECT_EQ(receive(port, 2), "in") << rate;
    }
}

TEST(Settings, ACloseLeavesTheLineAsItFoundIt) {
    const Tty before(uart);
    termios2 odd = before.settings();
    odd.c_cflag = B300 | CS7 | PARENB | CREAD | HUPCL;
    odd.c_lflag = ICANON | ECHO;
    odd.c_iflag = IXON | ICRNL;
    ASSERT_TRUE(before.set(odd));
    {
        const Port port(uart);
        ComSetFlow(port, 0);
    }
    const termios2 after = before.settings();
    EXPECT_EQ(after.c_cflag & ~tcflag_t{HUPCL}, odd.c_cflag & ~tcflag_t{HUPCL});
    EXPECT_EQ(after.c_lflag, odd.c_lflag);
    EXPECT_EQ(after.c_iflag, odd.c_iflag);
    EXPECT_EQ(uartRegister(modemControl) & 1, 0) << "DTR is down";
}

TEST(Settings, WhatADeviceCannotDoIsRefusedWithItsReason) {
    ComHostMapDevice(1, adapter);
    EXPECT_EQ(ComOpen("COM", 1, 9600, 6, 1, 1, 4096, 4096), -36) << "this adapter has 7 and 8 data bits";
    std::array<char, 300> why{};
    EXPECT_GT(ComHostGetErrorText(why.data(), static_cast<int32_t>(why.size())), 0);
    EXPECT_NE(std::string(why.data()).find(adapter), std::string::npos) << why.data();
    ComHostMapDevice(1, uart);
    EXPECT_EQ(ComOpen("COM", 1, 9600, 4, 1, 1, 4096, 4096), -36);
    ComHostMapDevice(1, "/dev/ttyS7"); // a name without a UART behind it
    EXPECT_EQ(ComOpen("COM", 1, 9600, 8, 1, 1, 4096, 4096), -25);
    const Port port(adapter);
    ComSetParms(port, 1, 6, 1);
    EXPECT_EQ(missing(adapter, {"cs8"}), "") << "a refused setting leaves the line as it was";
}

} // namespace

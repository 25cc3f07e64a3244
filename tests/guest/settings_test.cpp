// What an open and every setting make of a real line, as the kernel and the UART's own registers tell it.
#include <array>
#include <cstdio>
#include <vector>

#include "guest.h"

using namespace brisolt::test;

namespace {

/// The words of `wanted` that are missing in what stty says.
std::string missing(const std::string& path, const std::vector<std::string>& wanted) {
    const std::string command = "stty -a 2>/dev/null <" + path; // it misses a window size
    FILE* output = popen(command.c_str(), "r");
    std::string words = " ", absent;
    for (int c = fgetc(output); c != EOF; c = fgetc(output))
        words += c == '\n' || c == ';' ? ' ' : static_cast<char>(c);
    EXPECT_EQ(pclose(output), 0) << command;
    words += ' ';
    for (const std::string& word : wanted)
        if (words.find(' ' + word + ' ') == std::string::npos)
            absent += word + ' ';
    return absent.empty() ? absent : absent + "in" + words;
}

TEST(Settings, AnOpenLineCarriesPlainBytesAndTheModemIsLetGoAtTheClose) {
    {
        const Port port(uart);
        EXPECT_EQ(missing(uart, {"speed 9600 baud", "cs8", "-parenb", "-cstopb", "clocal", "cread",
                                 "-crtscts", "-ixon", "-ixoff", "-icanon", "-echo", "-isig", "-opost",
                                 "-icrnl", "-istrip", "ignbrk"}),
                  "");
        EXPECT_EQ(uartRegister(modemControl) & 3, 3) << "DTR and RTS are up";
    }
    EXPECT_EQ(uartRegister(modemControl) & 1, 0) << "DTR is down";
}

TEST(Settings, EveryFramingReachesTheUart) {
    const Port port(uart);
    constexpr std::array<uint8_t, 5> parityBits{0x00, 0x08, 0x18, 0x28, 0x38};
    for (int32_t parity = 1; parity <= 5; ++parity)
        for (int32_t dataBits = 5; dataBits <= 8; ++dataBits)
            for (int32_t stopBits = 1; stopBits <= 3; ++stopBits) {
                ASSERT_EQ(ComSetParms(port, parity, dataBits, stopBits), 1);
                const uint8_t now = uartRegister(lineControl);
                EXPECT_EQ(now & (parity == 1 ? 0x0F : 0x3F), // without parity its kind means nothing
                          (dataBits - 5) | (stopBits == 1 ? 0 : 4) |
                              parityBits[static_cast<size_t>(parity - 1)])
                    << "parity " << parity << ", data bits " << dataBits << ", stop bits " << stopBits;
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

class BaudRates : public testing::TestWithParam<Line> {};

TEST_P(BaudRates, AreWhatTheDeviceCanDoAndBytesPassAtThem) {
    const std::vector<uint32_t> answers = kernelsAnswer(GetParam().first);
    const Tty far(GetParam().second);
    const Port port(GetParam().first);
    const Tty witness(GetParam().first, Tty::As::witness);
    for (std::size_t i = 0; i < baudRates.size(); ++i) {
        SCOPED_TRACE(baudRates[i]);
        EXPECT_EQ(ComSetBaud(port, static_cast<int32_t>(baudRates[i])), 1);
        EXPECT_EQ(witness.settings().c_ospeed, answers[i]);
        EXPECT_EQ(witness.settings().c_ispeed, answers[i]);
        if (GetParam().first != std::string_view(adapter)) // its emulation never says that all has left
            expectTalk(port, far);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, BaudRates,
                         testing::Values(Line{uart, otherUart}, Line{usbModem, gadget},
                                         Line{adapter, adapterFarEnd}),
                         nameOfLine);

TEST(Settings, WhatADeviceCannotDoIsRefusedWithItsReason) {
    ComHostMapDevice(1, adapter);
    EXPECT_EQ(ComOpen("COM", 1, 9600, 6, 1, 1, 4096, 4096), -36) << "this adapter has 7 and 8 data bits";
    EXPECT_NE(errorTextNow().find(adapter), std::string::npos) << errorTextNow();
    ComHostMapDevice(1, uart);
    EXPECT_EQ(ComOpen("COM", 1, 9600, 4, 1, 1, 4096, 4096), -36);
    EXPECT_EQ(openOn(1, "/dev/ttyS7"), -25) << "a name without a UART behind it";
    const Port port(adapter);
    ComSetParms(port, 1, 6, 1);
    EXPECT_EQ(missing(adapter, {"cs8"}), "") << "a refused setting leaves the line as it was";
}

} // namespace

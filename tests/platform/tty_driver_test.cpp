// The tty driver on real pseudo terminals, whose other end is the witness.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/error_text.h"
#include "platform/posix/tty/tty_device.h"
#include "support/limit.h"
#include "support/peer_process.h"
#include "support/pty.h"
#include "support/test_device.h"
#include "support/timing.h"

using brisolt::Device;
using brisolt::Signal;
using namespace brisolt::test;
using namespace std::chrono_literals;

namespace {

const std::string flood(1 << 20, 'x'); ///< more than any queue holds

int32_t openSlave(const Pty& pty) {
    return ::open(pty.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
}

/// The settings as the other end sees them.
termios2 settingsOf(const Pty& pty) {
    termios2 now{};
    EXPECT_EQ(ioctl(pty.master(), TCGETS2, &now), 0);
    return now;
}

/// Gives the line settings that the driver would not choose.
termios2 setUpForAShell(const Pty& pty) {
    termios2 shell = settingsOf(pty);
    shell.c_lflag |= ICANON | ECHO;
    shell.c_iflag |= ICRNL;
    EXPECT_EQ(ioctl(pty.master(), TCSETS2, &shell), 0);
    return shell;
}

/// A device on the slave of a pseudo terminal.
class Tty : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(device.open(pty.slavePath()), 1); }

    Pty pty;
    TestDevice device;
};

} // namespace

TEST_F(Tty, IsExclusiveAndTellsWhoHoldsIt) {
    Device second;
    EXPECT_EQ(second.open(pty.slavePath()), -EBUSY);
    device.close();
    const int32_t slave = openSlave(pty);
    EXPECT_GE(slave, 0) << "still exclusive after the close";
    ::close(slave);

    PeerProcess holder(BRISOLT_TEST_PEER, {"hold", pty.slavePath()});
    ASSERT_EQ(holder.readLine(), "held");
    EXPECT_EQ(second.open(pty.slavePath()), -EBUSY);
    const std::string text = brisolt::errorText();
    EXPECT_NE(text.find(pty.slavePath()), std::string::npos) << text;
    EXPECT_NE(text.find("process " + std::to_string(holder.id())), std::string::npos) << text;
    holder.kill(SIGKILL);
    holder.wait();
    EXPECT_EQ(second.open(pty.slavePath()), 1);
}

TEST(TtyOpen, ALineStateReachesTheKernelAndComesBackAndACloseRestoresWhatWasBefore) {
    Pty pty;
    const termios2 before = setUpForAShell(pty);
    TestDevice device(pty.slavePath());
    EXPECT_EQ(settingsOf(pty).c_lflag & (ICANON | ECHO | ISIG), 0U);
    ComHostLineState state = device.state();
    state.flags = 0x7FFF, state.baudRate = 4711, state.dataBits = 7;
    state.parity = COM_HOST_PARITY_MARK, state.stopBits = COM_HOST_STOP_1_5;
    state.xonLimit = 100, state.xoffLimit = 200;
    state.xonChar = 1, state.xoffChar = 2, state.errorChar = 3, state.eofChar = 4, state.eventChar = 5;
    ASSERT_TRUE(device.setLineState(state));
    const ComHostLineState kept = device.state();
    EXPECT_EQ(memcmp(&kept, &state, sizeof kept), 0);
    EXPECT_NE(settingsOf(pty).c_iflag & IXON, 0U);
    EXPECT_NE(settingsOf(pty).c_cflag & CRTSCTS, 0U);
    device.close();
    const termios2 after = settingsOf(pty);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(after.c_ospeed, before.c_ospeed);
}

TEST_F(Tty, ARateGoesByItsUsualCodeAndOneThatAnotherProgramSetsIsForBothDirections) {
    const std::pair<uint32_t, tcflag_t> rates[] = {
        {110, B110}, {9600, B9600}, {12345, BOTHER}, {4000000, B4000000}};
    for (const auto& [rate, code] : rates) {
        ASSERT_TRUE(device.change([rate = rate](ComHostLineState& state) { state.baudRate = rate; }));
        EXPECT_EQ(settingsOf(pty).c_ospeed, rate);
        EXPECT_EQ(settingsOf(pty).c_ispeed, rate);
        EXPECT_EQ(settingsOf(pty).c_cflag & CBAUD, code) << "by the code alone most programs tell a rate";
        termios others{};
        ASSERT_EQ(ioctl(pty.master(), TCGETS, &others), 0);
        others.c_cflag = (others.c_cflag & ~tcflag_t{CBAUD}) | B4800;
        ASSERT_EQ(ioctl(pty.master(), TCSETS, &others), 0);
        EXPECT_EQ(settingsOf(pty).c_ispeed, 4800U);
        EXPECT_EQ(device.state().baudRate, 4800U);
    }
}

TEST_F(Tty, ImpossibleLineStatesChangeNothing) {
    TestDevice nullModem("null-modem:impossible");
    for (const TestDevice* each : {&device, &nullModem}) {
        const ComHostLineState state = each->state();
        const auto refuses = [&](auto makeBad) {
            EXPECT_FALSE(each->change(makeBad));
            const ComHostLineState now = each->state();
            EXPECT_EQ(memcmp(&now, &state, sizeof now), 0);
        };
        const uint8_t tooFew = each == &device ? 4 : 3;
        refuses([](ComHostLineState& bad) { bad.baudRate = 0; });
        refuses([tooFew](ComHostLineState& bad) { bad.baudRate = 300, bad.dataBits = tooFew; });
        refuses([](ComHostLineState& bad) { bad.eventChar = 9, bad.dataBits = 9; });
        refuses([](ComHostLineState& bad) { bad.parity = 5; });
        refuses([](ComHostLineState& bad) { bad.stopBits = 3; });
    }
}

TEST_F(Tty, StripsZerosAndUndoublesMarks) {
    ASSERT_TRUE(device.change([](ComHostLineState& state) {
        state.parity = COM_HOST_PARITY_EVEN;
        state.flags |= COM_HOST_LINE_ERROR_REPLACE | COM_HOST_LINE_NULL_STRIP;
    }));
    ASSERT_EQ(pty.write({"a\xFF\0b\xFF\xFF", 6}), 6U);
    std::string got;
    while (got.size() < 5 && device.wait(readable, 5000) != 0)
        got += device.read(1); // so that every mark is split
    EXPECT_EQ(got, "a\xFF"
                   "b\xFF\xFF");
}

TEST(MarkFilter, UndoesMarksSplitAnywhere) {
    const std::vector<uint8_t> marked = {'a',  0xFF, 0xFF, 'b',  0xFF, 0x00, 'x',
                                         0xFF, 0x00, 0xFF, 0x00, 'c',  0xFF, 0xFF};
    const std::vector<uint8_t> plain = {'a', 0xFF, 'b', '?', '?', 0x00, 'c', 0xFF};
    for (std::size_t size = 1; size <= marked.size(); ++size) {
        brisolt::tty::MarkFilter filter;
        std::vector<uint8_t> got, bytes = marked;
        for (std::size_t at = 0; at < bytes.size(); at += size) {
            uint8_t* const part = bytes.data() + at;
            const auto count = static_cast<int32_t>(std::min(size, bytes.size() - at));
            got.insert(got.end(), part, part + filter.undo(part, count, '?'));
        }
        EXPECT_EQ(got, plain) << "in pieces of " << size;
    }
}

TEST(TtyStatus, WhatAPurgeHasDiscardedIsNotWaitedFor) {
    const Pty pty;
    brisolt::tty::TtyDevice tty;
    tty.descriptor = openSlave(pty); // taken for a line with a transmitter that does not tell
    tty.tellsTransmitter = false;
    tty.bitRate = 10;
    int32_t error = 0;
    EXPECT_EQ(brisolt::tty::write(&tty, "hundred", 7, COM_HOST_WRITE_NOW, &error), 7);
    EXPECT_GT(brisolt::tty::unsent(&tty), 0);
    EXPECT_EQ(brisolt::tty::purge(&tty, COM_HOST_PURGE_TX), 1);
    EXPECT_EQ(brisolt::tty::unsent(&tty), 0);
}

TEST(TtyOptions, WhatADriverLeavesOutOfTheHalfDuplexIsNamed) {
    serial_rs485 granted{};
    granted.flags = SER_RS485_ENABLED | SER_RS485_RTS_ON_SEND;
    granted.delay_rts_before_send = 100;
    const auto otherwise = [&granted](const brisolt::Rs485Options& wanted) {
        return brisolt::tty::grantedOtherwise(wanted, granted);
    };
    EXPECT_EQ(otherwise({.beforeMs = 100}), "");
    EXPECT_EQ(otherwise({.beforeMs = 200, .echo = true}), "rs485-echo=no, rs485-before=100");
    EXPECT_EQ(otherwise({.rtsHigh = false, .beforeMs = 100, .resistor = brisolt::Rs485Resistor::on}),
              "rs485-rts=high, rs485-termination=off");
}

TEST_F(Tty, AWriteEndsByTimeOutOrCancelAndDeliversWhatItCounted) {
    const FastClock fast;
    device.writeLimit(2000);
    const auto [written, error] = device.write(flood);
    EXPECT_EQ(error, ETIMEDOUT);
    ASSERT_GT(written, 0);
    ASSERT_LT(written, static_cast<int32_t>(flood.size()));
    EXPECT_EQ(pty.readToQuiet().size(), static_cast<std::size_t>(written));

    // A cancel ends writes until it is lifted.
    device.writeLimit(~0U);
    auto writers = std::pair{device.writeAside(flood), device.writeAside(flood)};
    EXPECT_TRUE(eventually([&] {
        device.cancel(true);
        device.cancel(false);
        return done(writers.first) && done(writers.second);
    }));
    EXPECT_EQ(writers.first.get().second, ECANCELED) << "also when the cancelling is over by then";
    EXPECT_EQ(writers.second.get().second, ECANCELED);
    device.cancel(true);
    EXPECT_EQ(device.write(flood).second, ECANCELED) << "a cancel lasts";
    device.cancel(false);
    device.writeLimit(50);
    EXPECT_EQ(device.write(flood).second, ETIMEDOUT);
}

TEST_F(Tty, AHostThatCannotPollKeepsNobodyRunningAndNobodyWaiting) {
    TestDevice nullModem("null-modem:no polls"); // without a peer that would raise CTS
    nullModem.flags(COM_HOST_LINE_CTS_OUTPUT);
    const Signal wake;
    for (const TestDevice* each : {&device, &nullModem}) {
        each->writeLimit(~0U);
        const NoDescriptors none;
        auto writer = each->writeAside(flood);
        const auto end = std::chrono::steady_clock::now() + 300ms;
        int32_t looks = 0;
        for (; std::chrono::steady_clock::now() < end; ++looks)
            EXPECT_EQ(each->wait(readable, 1000, wake.descriptor()), 0U);
        EXPECT_LT(looks, 100);
        each->cancel(true);
        EXPECT_EQ(writer.get().second, ECANCELED);
    }
}

TEST_F(Tty, AWaitEndsForBytesAndForItsCaller) {
    Signal wake;
    EXPECT_EQ(device.wait(readable | writable, -1, wake.descriptor()), writable);
    EXPECT_EQ(device.wait(readable, 0, wake.descriptor()), 0U);
    std::thread caller([&] { wake.set(); });
    EXPECT_EQ(device.wait(readable, -1, wake.descriptor()), 0U);
    caller.join();
    ASSERT_EQ(pty.write("x"), 1U);
    wake.clear();
    EXPECT_EQ(device.wait(readable, -1, wake.descriptor()), readable);
    EXPECT_EQ(device.read(), "x");
    EXPECT_EQ(device.read(), "");
    ASSERT_EQ(pty.write("hello"), 5U);
    EXPECT_TRUE(eventually([&] { return device.inQueue() == 5; }));
    EXPECT_TRUE(device.purge(COM_HOST_PURGE_RX));
    EXPECT_EQ(device.wait(readable, 0), 0U) << "it is discarded";

    pty.close(); // the hang-up ends no wait, and keeps none from its caller
    EXPECT_EQ(device.wait(readable | writable, 50), 0U);
    wake.set();
    EXPECT_EQ(device.wait(readable, -1, wake.descriptor()), 0U);
}

TEST(TtyAdopt, MasterOutlivesItsSlave) {
    Pty pty;
    TestDevice device;
    ASSERT_EQ(device.adopt(pty.master()), 1);
    device.writeLimit(~0U);
    for (const std::string text : {"last", "again"}) {
        const int32_t slave = openSlave(pty);
        ASSERT_EQ(::write(slave, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        ::close(slave);
        EXPECT_EQ(device.wait(readable, 5000), readable);
        EXPECT_EQ(device.read(), text) << "what was sent before the hang-up";
        EXPECT_EQ(device.read(), "");
        const auto [written, error] = device.write(flood);
        EXPECT_LT(written, static_cast<int32_t>(flood.size()));
        EXPECT_EQ(error, EIO) << "nobody is there to read";
    }
}

TEST_F(Tty, AnAdoptedOneIsLeftAsItWas) {
    device.close();
    const termios2 shell = setUpForAShell(pty);
    ASSERT_EQ(device.adopt(pty.master()), 1);
    ASSERT_TRUE(device.setLineState(device.state()));
    EXPECT_EQ(settingsOf(pty).c_lflag, shell.c_lflag) << "a master leaves the slave's settings";
    device.close();

    const int32_t slave = openSlave(pty);
    ASSERT_EQ(device.adopt(slave), 1);
    EXPECT_EQ(device.handle(), slave);
    EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0) << "waiting on it is the caller's business";
    ASSERT_TRUE(device.change([](ComHostLineState& state) { state.baudRate = 2400; }));
    device.close();
    EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(settingsOf(pty).c_ospeed, 2400U) << "the caller's device stays as configured";
    ::close(slave);
}

// The tty driver on real pseudo terminals, whose other end is the witness.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "device/device.h"
#include "platform/error_text.h"
#include "platform/posix/tty/tty_device.h"
#include "port/ports.h"
#include "support/peer_process.h"
#include "support/pty.h"

using brisolt::Device;
using brisolt::Signal;
using namespace brisolt::test;
using namespace std::chrono_literals;

namespace {

constexpr uint32_t readable = COM_HOST_WAIT_READ, writable = COM_HOST_WAIT_WRITE;
const std::string flood(1 << 20, 'x');

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

ComHostLineState stateOf(const Device& device) {
    ComHostLineState state{};
    EXPECT_TRUE(device.getLineState(state));
    return state;
}

template <class Change> bool change(const Device& device, Change change) {
    ComHostLineState state = stateOf(device);
    change(state);
    return device.setLineState(state);
}

void setWriteLimit(const Device& device, uint32_t milliseconds) {
    ComHostTimeouts timeouts{};
    ASSERT_TRUE(device.getTimeouts(timeouts));
    timeouts.writeConstant = milliseconds;
    ASSERT_TRUE(device.setTimeouts(timeouts));
}

/// Writes more than any queue holds; what it ends with goes to `error`.
int32_t writeFlood(const Device& device, int32_t& error) {
    return device.write(flood.data(), static_cast<int32_t>(flood.size()), COM_HOST_WRITE_COMPLETE, error);
}

std::string readAll(const Device& device) {
    std::string bytes(64, '\0');
    bytes.resize(static_cast<std::size_t>(device.read(bytes.data(), 64)));
    return bytes;
}

/// A device on the slave of a pseudo terminal.
class Tty : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(device.open(pty.slavePath()), 1); }

    Pty pty;
    Device device;
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

TEST(TtyOpen, RefusesWhatIsNoTty) {
    Device device;
    EXPECT_EQ(device.open("/dev/null"), -ENOTTY);
    EXPECT_EQ(device.open("/dev/no-such-device"), -ENOENT);
    EXPECT_EQ(device.open("COM"), -ENOENT);
    EXPECT_EQ(device.adopt(999999), -EBADF);
    EXPECT_FALSE(device.present());
}

TEST(TtyOpen, RestoresSettingsAtClose) {
    Pty pty;
    const termios2 before = setUpForAShell(pty);
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    EXPECT_EQ(settingsOf(pty).c_lflag & (ICANON | ECHO | ISIG), 0U);
    EXPECT_TRUE(change(device, [](ComHostLineState& state) { state.baudRate = 4711; }));
    device.close();
    const termios2 after = settingsOf(pty);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_ospeed, before.c_ospeed);
}

TEST_F(Tty, LineStateReachesTheKernelAndComesBack) {
    for (const uint32_t rate : {110U, 12345U, 4000000U}) {
        ASSERT_TRUE(change(device, [rate](ComHostLineState& state) { state.baudRate = rate; }));
        EXPECT_EQ(settingsOf(pty).c_ospeed, rate);
        EXPECT_EQ(settingsOf(pty).c_ispeed, rate);
    }
    ComHostLineState state = stateOf(device);
    state.flags = 0x7FFF, state.dataBits = 7;
    state.parity = COM_HOST_PARITY_MARK, state.stopBits = COM_HOST_STOP_1_5;
    state.xonLimit = 100, state.xoffLimit = 200;
    state.xonChar = 1, state.xoffChar = 2, state.errorChar = 3, state.eofChar = 4, state.eventChar = 5;
    ASSERT_TRUE(device.setLineState(state));
    const ComHostLineState kept = stateOf(device);
    EXPECT_EQ(memcmp(&kept, &state, sizeof kept), 0);
    EXPECT_NE(settingsOf(pty).c_iflag & IXON, 0U);
    EXPECT_NE(settingsOf(pty).c_cflag & CRTSCTS, 0U);
}

TEST_F(Tty, ImpossibleLineStatesChangeNothing) {
    Device nullModem;
    ASSERT_EQ(nullModem.open("null-modem:impossible"), 1);
    for (const Device* each : {&device, &nullModem}) {
        const ComHostLineState state = stateOf(*each);
        const auto refuses = [&](auto makeBad) {
            EXPECT_FALSE(change(*each, makeBad));
            const ComHostLineState now = stateOf(*each);
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

TEST_F(Tty, ResumesAfterXoff) {
    ASSERT_TRUE(change(device, [](ComHostLineState& state) { state.flags |= COM_HOST_LINE_XON_OUTPUT; }));
    ASSERT_EQ(::write(pty.master(), &"\x13", 1), 1);
    EXPECT_TRUE(eventually([&] { return device.wait(writable, -1, 0) == 0; }));
    int32_t error = 0;
    EXPECT_EQ(device.write("x", 1, COM_HOST_WRITE_NOW, error), 0);
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(device.line(COM_HOST_LINE_RESUME));
    EXPECT_EQ(device.write("x", 1, COM_HOST_WRITE_NOW, error), 1);
}

TEST_F(Tty, StripsZerosAndUndoublesMarks) {
    ASSERT_TRUE(change(device, [](ComHostLineState& state) {
        state.parity = COM_HOST_PARITY_EVEN;
        state.flags |= COM_HOST_LINE_ERROR_REPLACE | COM_HOST_LINE_NULL_STRIP;
    }));
    ASSERT_EQ(::write(pty.master(), "a\xFF\0b\xFF\xFF", 6), 6);
    std::string got;
    char byte = 0; // read one by one, so that every mark is split
    while (got.size() < 5 && device.wait(readable, -1, 5000) != 0)
        if (device.read(&byte, 1) > 0)
            got += byte;
    EXPECT_EQ(got, "a\xFF"
                   "b\xFF\xFF");
}

TEST(MarkFilter, UndoesMarksSplitAnywhere) {
    const std::vector<uint8_t> marked = {'a',  0xFF, 0xFF, 'b',  0xFF, 0x00, 'x',
                                         0xFF, 0x00, 0xFF, 0x00, 'c',  0xFF, 0xFF};
    const std::vector<uint8_t> plain = {'a', 0xFF, 'b', '?', '?', 0x00, 'c', 0xFF};
    for (std::size_t size = 1; size <= marked.size(); ++size) {
        brisolt::tty::MarkFilter filter;
        std::vector<uint8_t> got;
        for (std::size_t at = 0; at < marked.size(); at += size) {
            std::vector<uint8_t> part = marked;
            part.resize(std::min(at + size, marked.size()));
            part.erase(part.begin(), part.begin() + static_cast<std::ptrdiff_t>(at));
            const int32_t left = filter.undo(part.data(), static_cast<int32_t>(part.size()), '?');
            got.insert(got.end(), part.begin(), part.begin() + left);
        }
        EXPECT_EQ(got, plain) << "in pieces of " << size;
    }
}

TEST_F(Tty, CountsAndDiscardsWhatHasCome) {
    ASSERT_EQ(pty.write("hello"), 5U);
    ASSERT_EQ(device.wait(readable, -1, 5000), readable);
    const ComHostStatus status = device.status(COM_HOST_WANT_ERRORS | COM_HOST_WANT_IN | COM_HOST_WANT_OUT);
    EXPECT_EQ(status.inQueue, 5U);
    EXPECT_EQ(status.outQueue + status.errors, 0U);
    EXPECT_TRUE(device.purge(COM_HOST_PURGE_RX));
    EXPECT_EQ(device.status(COM_HOST_WANT_IN).inQueue, 0U);
}

TEST_F(Tty, AWriteEndsByTimeOutAndDeliversWhatItCounted) {
    const FastClock fast;
    setWriteLimit(device, 2000);
    int32_t error = -1;
    const int32_t written = writeFlood(device, error);
    EXPECT_EQ(error, ETIMEDOUT);
    ASSERT_GT(written, 0);
    ASSERT_LT(written, static_cast<int32_t>(flood.size()));
    EXPECT_EQ(pty.readToQuiet().size(), static_cast<std::size_t>(written));
}

TEST_F(Tty, CancelEndsWritesUntilItIsLifted) {
    setWriteLimit(device, ~0U);
    int32_t error = 0;
    std::thread writer([&] { writeFlood(device, error); });
    std::this_thread::sleep_for(30ms);
    device.cancel(true);
    writer.join();
    EXPECT_EQ(error, ECANCELED);
    writeFlood(device, error);
    EXPECT_EQ(error, ECANCELED) << "a cancel lasts";
    device.cancel(false);
    setWriteLimit(device, 50);
    writeFlood(device, error);
    EXPECT_EQ(error, ETIMEDOUT);
}

TEST_F(Tty, AWaitEndsForBytesAndForItsCaller) {
    Signal wake;
    EXPECT_EQ(device.wait(readable | writable, wake.descriptor(), -1), writable);
    EXPECT_EQ(device.wait(readable, wake.descriptor(), 0), 0U);
    std::thread caller([&] { wake.set(); });
    EXPECT_EQ(device.wait(readable, wake.descriptor(), -1), 0U);
    caller.join();
    ASSERT_EQ(pty.write("x"), 1U);
    wake.clear();
    EXPECT_EQ(device.wait(readable, wake.descriptor(), -1), readable);
    EXPECT_EQ(readAll(device), "x");
    EXPECT_EQ(readAll(device), "");

    pty.close(); // the hang-up ends no wait, and keeps none from its caller
    EXPECT_EQ(device.wait(readable | writable, -1, 50), 0U);
    wake.set();
    EXPECT_EQ(device.wait(readable, wake.descriptor(), -1), 0U);
}

TEST(TtyAdopt, MasterOutlivesItsSlave) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.adopt(pty.master()), 1);
    setWriteLimit(device, ~0U);
    for (const std::string text : {"last", "again"}) {
        const int32_t slave = openSlave(pty);
        ASSERT_EQ(::write(slave, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        ::close(slave);
        EXPECT_EQ(device.wait(readable, -1, 5000), readable);
        EXPECT_EQ(readAll(device), text) << "what was sent before the hang-up";
        EXPECT_EQ(readAll(device), "");
        int32_t error = 0;
        EXPECT_LT(writeFlood(device, error), static_cast<int32_t>(flood.size()));
        EXPECT_EQ(error, EIO) << "nobody is there to read";
    }
}

TEST(TtyAdopt, LeavesWhatIsTheCallersAsItWas) {
    Pty pty;
    const termios2 shell = setUpForAShell(pty);
    Device device;
    ASSERT_EQ(device.adopt(pty.master()), 1);
    ASSERT_TRUE(device.setLineState(stateOf(device)));
    EXPECT_EQ(settingsOf(pty).c_lflag, shell.c_lflag) << "a master leaves the slave's settings";
    device.close();

    const int32_t slave = openSlave(pty);
    ASSERT_EQ(device.adopt(slave), 1);
    EXPECT_EQ(device.handle(), slave);
    EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0) << "waiting on it is the caller's business";
    ASSERT_TRUE(change(device, [](ComHostLineState& state) { state.baudRate = 2400; }));
    device.close();
    EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(settingsOf(pty).c_ospeed, 2400U) << "the caller's device stays as configured";
    ::close(slave);
}

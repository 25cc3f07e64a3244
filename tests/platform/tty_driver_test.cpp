// The tty driver on real pseudo terminals, whose other end is the witness.
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "platform/device.h"
#include "platform/error_text.h"
#include "platform/posix/tty_device.h"
#include "support/pty.h"

using brisolt::Device;
using brisolt::Signal;
using brisolt::test::Pty;
using namespace std::chrono_literals;

namespace {

int32_t openSlave(const Pty& pty) {
    return ::open(pty.slavePath().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

/// The settings as the other end sees them.
termios2 settingsOf(const Pty& pty) {
    termios2 now{};
    EXPECT_EQ(ioctl(pty.master(), TCGETS2, &now), 0);
    return now;
}

struct TestScale {
    explicit TestScale(uint32_t factor) { brisolt::clock::setTestScale(factor); }
    ~TestScale() { brisolt::clock::setTestScale(1); }
};

ComHostLineState stateOf(const Device& device) {
    ComHostLineState state{};
    EXPECT_TRUE(device.getLineState(state));
    return state;
}

void setWriteLimit(const Device& device, uint32_t milliseconds) {
    ComHostTimeouts timeouts{};
    ASSERT_TRUE(device.getTimeouts(timeouts));
    timeouts.writeConstant = milliseconds;
    ASSERT_TRUE(device.setTimeouts(timeouts));
}

std::string readAll(const Device& device) {
    std::array<char, 64> bytes{};
    const int32_t got = device.read(bytes.data(), bytes.size());
    return got > 0 ? std::string(bytes.data(), static_cast<std::size_t>(got)) : std::string();
}

std::chrono::nanoseconds processorTime() {
    timespec used{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

/// A wait on which nothing can happen takes its time and no processor time.
void expectQuietWait(const Device& device) {
    const auto start = std::chrono::steady_clock::now();
    const auto used = processorTime();
    for (int32_t waits = 0; std::chrono::steady_clock::now() - start < 300ms; ++waits) {
        EXPECT_EQ(device.wait(COM_HOST_WAIT_READ | COM_HOST_WAIT_WRITE, -1, 300), 0U);
        ASSERT_LT(waits, 20);
    }
    EXPECT_LT(processorTime() - used, 100ms);
}

constexpr const char* holderVariable = "TTY_TEST_HOLDS";
const std::vector<char> flood(1 << 20, 'x');

} // namespace

TEST(TtyOpen, IsExclusiveAndNamesTheHolder) {
    Pty pty;
    Device first;
    ASSERT_EQ(first.open(pty.slavePath()), 1);
    Device second;
    EXPECT_EQ(second.open(pty.slavePath()), -EBUSY);
    const std::string text = brisolt::errorText();
    EXPECT_NE(text.find(pty.slavePath()), std::string::npos) << text;
    EXPECT_NE(text.find("process " + std::to_string(getpid())), std::string::npos) << text;
    first.close();
    EXPECT_EQ(second.open(pty.slavePath()), 1);
    second.close();
    const int32_t slave = openSlave(pty);
    EXPECT_GE(slave, 0) << "still exclusive after the close";
    ::close(slave);
}

// Not a test of its own: what IsExclusiveAgainstAnotherProcess runs in the other process.
TEST(TtyOpen, DISABLED_HoldUntilKilled) {
    const char* path = getenv(holderVariable);
    ASSERT_NE(path, nullptr);
    Device device;
    while (device.open(path) != 1) // the test may be looking just now
        std::this_thread::sleep_for(1ms);
    while (true)
        ::pause();
}

TEST(TtyOpen, IsExclusiveAgainstAnotherProcess) {
    Pty pty;
    setenv(holderVariable, pty.slavePath().c_str(), 1);
    std::string program = "/proc/self/exe";
    std::string filter = "--gtest_filter=TtyOpen.DISABLED_HoldUntilKilled";
    std::string also = "--gtest_also_run_disabled_tests";
    char* arguments[] = {program.data(), filter.data(), also.data(), nullptr};
    pid_t holder = 0;
    ASSERT_EQ(posix_spawn(&holder, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    int32_t result = 1;
    for (int32_t attempt = 0; attempt < 1000 && result != -EBUSY; ++attempt) {
        Device device;
        result = device.open(pty.slavePath());
        device.close();
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_EQ(result, -EBUSY);
    EXPECT_NE(brisolt::errorText().find("process " + std::to_string(holder)), std::string::npos)
        << brisolt::errorText();
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    Device device;
    EXPECT_EQ(device.open(pty.slavePath()), 1);
}

TEST(TtyOpen, RefusesWhatIsNoTty) {
    Device device;
    EXPECT_EQ(device.open("/dev/null"), -ENOTTY);
    EXPECT_NE(brisolt::errorText().find("/dev/null"), std::string::npos);
    EXPECT_EQ(device.open("/dev/no-such-device"), -ENOENT);
    EXPECT_EQ(device.open("COM"), -ENOENT);
    EXPECT_FALSE(device.present());
}

TEST(TtyOpen, RestoresSettingsAtClose) {
    Pty pty;
    termios2 before = settingsOf(pty);
    before.c_lflag |= ICANON | ECHO;
    before.c_iflag |= ICRNL;
    ASSERT_EQ(ioctl(pty.master(), TCSETS2, &before), 0);
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    EXPECT_EQ(settingsOf(pty).c_lflag & (ICANON | ECHO | ISIG), 0U);
    ComHostLineState state = stateOf(device);
    state.baudRate = 4711;
    EXPECT_TRUE(device.setLineState(state));
    device.close();
    const termios2 after = settingsOf(pty);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_ospeed, before.c_ospeed);
}

TEST(TtyLineState, AnyBaudRateReachesTheKernel) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    for (const uint32_t rate : {110U, 9600U, 12345U, 250000U, 4000000U}) {
        ComHostLineState state = stateOf(device);
        state.baudRate = rate;
        ASSERT_TRUE(device.setLineState(state));
        EXPECT_EQ(settingsOf(pty).c_ospeed, rate);
        EXPECT_EQ(settingsOf(pty).c_ispeed, rate);
        EXPECT_EQ(stateOf(device).baudRate, rate);
    }
}

TEST(TtyLineState, KeepsEveryFieldAndRefusesTheImpossible) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    ComHostLineState state = stateOf(device);
    state.flags = 0x7FFF;
    state.dataBits = 7;
    state.parity = COM_HOST_PARITY_MARK;
    state.stopBits = COM_HOST_STOP_1_5;
    state.xonLimit = 100;
    state.xoffLimit = 200;
    state.xonChar = 1;
    state.xoffChar = 2;
    state.errorChar = 3;
    state.eofChar = 4;
    state.eventChar = 5;
    ASSERT_TRUE(device.setLineState(state));
    const ComHostLineState kept = stateOf(device);
    EXPECT_EQ(memcmp(&kept, &state, sizeof kept), 0);
    EXPECT_NE(settingsOf(pty).c_iflag & IXON, 0U);
    EXPECT_NE(settingsOf(pty).c_cflag & CRTSCTS, 0U);

    const auto refuses = [&](auto change) {
        ComHostLineState bad = state;
        change(bad);
        EXPECT_FALSE(device.setLineState(bad));
        const ComHostLineState now = stateOf(device);
        EXPECT_EQ(memcmp(&now, &state, sizeof now), 0);
    };
    refuses([](ComHostLineState& bad) { bad.baudRate = 0; });
    refuses([](ComHostLineState& bad) { bad.dataBits = 4; });
    EXPECT_NE(brisolt::errorText().find("4 data bits"), std::string::npos);
    refuses([](ComHostLineState& bad) { bad.parity = 5; });
    refuses([](ComHostLineState& bad) { bad.stopBits = 3; });
}

TEST(TtyLineState, ResumesAfterXoff) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    ComHostLineState state = stateOf(device);
    state.flags |= COM_HOST_LINE_XON_OUTPUT;
    ASSERT_TRUE(device.setLineState(state));
    ASSERT_EQ(::write(pty.master(), &state.xoffChar, 1), 1);
    int32_t error = 0;
    while (device.wait(COM_HOST_WAIT_WRITE, -1, 0) != 0)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(device.write("x", 1, COM_HOST_WRITE_NOW, error), 0);
    EXPECT_EQ(error, 0);
    EXPECT_TRUE(device.line(COM_HOST_LINE_RESUME));
    EXPECT_EQ(device.write("x", 1, COM_HOST_WRITE_NOW, error), 1);
}

TEST(TtyLineState, StripsZerosAndUndoublesMarks) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    ComHostLineState state = stateOf(device);
    state.parity = COM_HOST_PARITY_EVEN;
    state.flags |= COM_HOST_LINE_ERROR_REPLACE | COM_HOST_LINE_NULL_STRIP;
    ASSERT_TRUE(device.setLineState(state));
    ASSERT_EQ(::write(pty.master(), "a\xFF\0b\xFF\xFF", 6), 6);
    std::string got;
    char byte = 0; // read one by one, so that every mark is split
    while (got.size() < 5 && device.wait(COM_HOST_WAIT_READ, -1, 5000) != 0)
        if (device.read(&byte, 1) > 0)
            got += byte;
    EXPECT_EQ(got, "a\xFF"
                   "b\xFF\xFF");
}

TEST(MarkFilter, UndoesMarksSplitAnywhere) {
    const std::vector<uint8_t> marked = {'a',  0xFF, 0xFF, 'b',  0xFF, 0x00, 'x',
                                         0xFF, 0x00, 0xFF, 0x00, 'c',  0xFF, 0xFF};
    const std::vector<uint8_t> plain = {'a', 0xFF, 'b', '?', '?', 0x00, 'c', 0xFF};
    for (std::size_t first = 0; first <= marked.size(); ++first) {
        for (std::size_t second = first; second <= marked.size(); ++second) {
            brisolt::tty::MarkFilter filter;
            std::vector<uint8_t> got;
            const std::size_t cuts[] = {0, first, second, marked.size()};
            for (int32_t part = 0; part < 3; ++part) {
                std::vector<uint8_t> bytes(marked.begin() + static_cast<std::ptrdiff_t>(cuts[part]),
                                           marked.begin() + static_cast<std::ptrdiff_t>(cuts[part + 1]));
                const int32_t left = filter.undo(bytes.data(), static_cast<int32_t>(bytes.size()), '?');
                got.insert(got.end(), bytes.begin(), bytes.begin() + left);
            }
            EXPECT_EQ(got, plain) << first << ", " << second;
        }
    }
}

TEST(TtyStatus, PtyHasQueuesButNoLines) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    uint32_t lines = 1;
    EXPECT_FALSE(device.modemStatus(lines));
    EXPECT_FALSE(device.line(COM_HOST_LINE_SET_DTR));
    ASSERT_EQ(pty.write("hello"), 5U);
    ASSERT_EQ(device.wait(COM_HOST_WAIT_READ, -1, 5000), static_cast<uint32_t>(COM_HOST_WAIT_READ));
    const ComHostStatus status = device.status(COM_HOST_WANT_ERRORS | COM_HOST_WANT_IN | COM_HOST_WANT_OUT);
    EXPECT_EQ(status.inQueue, 5U);
    EXPECT_EQ(status.outQueue + status.errors, 0U);
    EXPECT_TRUE(device.purge(COM_HOST_PURGE_RX | COM_HOST_PURGE_TX));
    EXPECT_EQ(device.status(COM_HOST_WANT_IN).inQueue, 0U);
    ComHostProperties properties{};
    EXPECT_TRUE(device.properties(properties));
    EXPECT_NE(properties.provCapabilities & COM_HOST_CAN_PARITY_CHECK, 0U);
}

TEST(TtyWrite, EndsByTimeOutAndDeliversWhatItCounted) {
    const TestScale scale(20);
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    setWriteLimit(device, 2000);
    int32_t error = -1;
    const auto size = static_cast<int32_t>(flood.size());
    const int32_t written = device.write(flood.data(), size, COM_HOST_WRITE_COMPLETE, error);
    EXPECT_EQ(error, ETIMEDOUT);
    ASSERT_GT(written, 0);
    ASSERT_LT(written, size);
    EXPECT_EQ(pty.readToQuiet().size(), static_cast<std::size_t>(written));
}

TEST(TtyWrite, CompletesWhileThePeerReads) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    setWriteLimit(device, 20000);
    int32_t written = 0;
    std::thread writer([&] {
        int32_t error = 0;
        written =
            device.write(flood.data(), static_cast<int32_t>(flood.size()), COM_HOST_WRITE_COMPLETE, error);
    });
    EXPECT_EQ(pty.read(flood.size()).size(), flood.size());
    writer.join();
    EXPECT_EQ(written, static_cast<int32_t>(flood.size()));
    EXPECT_TRUE(device.flush());
}

TEST(TtyWrite, CancelEndsItsWaitsUntilItIsLifted) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    setWriteLimit(device, ~0U);
    int32_t error = 0;
    std::thread writer([&] {
        device.write(flood.data(), static_cast<int32_t>(flood.size()), COM_HOST_WRITE_COMPLETE, error);
    });
    std::this_thread::sleep_for(30ms);
    device.cancel(true);
    writer.join();
    EXPECT_EQ(error, ECANCELED);
    device.write(flood.data(), static_cast<int32_t>(flood.size()), COM_HOST_WRITE_COMPLETE, error);
    EXPECT_EQ(error, ECANCELED) << "a cancel lasts";
    device.cancel(false);
    setWriteLimit(device, 50);
    device.write(flood.data(), static_cast<int32_t>(flood.size()), COM_HOST_WRITE_COMPLETE, error);
    EXPECT_EQ(error, ETIMEDOUT);
}

TEST(TtyWait, WakesForBytesAndForItsCaller) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    Signal wake;
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ | COM_HOST_WAIT_WRITE, wake.descriptor(), -1),
              static_cast<uint32_t>(COM_HOST_WAIT_WRITE));
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, wake.descriptor(), 0), 0U);
    std::thread caller([&] { wake.set(); });
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, wake.descriptor(), -1), 0U);
    caller.join();
    ASSERT_EQ(pty.write("x"), 1U);
    wake.clear();
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, wake.descriptor(), -1),
              static_cast<uint32_t>(COM_HOST_WAIT_READ));
    EXPECT_EQ(readAll(device), "x");
    EXPECT_EQ(readAll(device), "");
}

TEST(TtyHangUp, ReadsAsAnEmptyLineAndTakesNothing) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.open(pty.slavePath()), 1);
    pty.close();
    expectQuietWait(device);
    char byte = 0;
    int32_t error = 0;
    EXPECT_EQ(device.read(&byte, 1), 0);
    EXPECT_EQ(device.write("x", 1, COM_HOST_WRITE_COMPLETE, error), 0);
    EXPECT_EQ(error, EIO);
    EXPECT_EQ(device.status(COM_HOST_WANT_IN | COM_HOST_WANT_ERRORS).inQueue, 0U);
    Signal wake;
    wake.set();
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, wake.descriptor(), -1), 0U);
}

TEST(TtyHangUp, AdoptedMasterSurvivesItsSlave) {
    Pty pty;
    Device device;
    ASSERT_EQ(device.adopt(pty.master()), 1);
    int32_t slave = openSlave(pty);
    ASSERT_EQ(::write(slave, "last", 4), 4);
    ::close(slave);
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, -1, 5000), static_cast<uint32_t>(COM_HOST_WAIT_READ));
    EXPECT_EQ(readAll(device), "last") << "what was sent before the hang-up";
    EXPECT_EQ(readAll(device), "");
    expectQuietWait(device);

    setWriteLimit(device, ~0U);
    int32_t error = 0;
    EXPECT_LT(device.write(flood.data(), static_cast<int32_t>(flood.size()), COM_HOST_WRITE_COMPLETE, error),
              static_cast<int32_t>(flood.size()));
    EXPECT_EQ(error, EIO) << "nobody is there to read";

    slave = openSlave(pty);
    ASSERT_EQ(::write(slave, "again", 5), 5);
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, -1, 5000), static_cast<uint32_t>(COM_HOST_WAIT_READ));
    EXPECT_EQ(readAll(device), "again");
    ::close(slave);
}

TEST(TtyAdopt, LeavesTheDescriptorAsItWas) {
    Pty pty;
    const int32_t slave = ::open(pty.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    Device device;
    ASSERT_EQ(device.adopt(slave), 1);
    EXPECT_EQ(device.handle(), slave);
    EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0) << "waiting on it is the caller's business";
    ComHostLineState state = stateOf(device);
    state.baudRate = 2400;
    ASSERT_TRUE(device.setLineState(state));
    device.close();
    EXPECT_EQ(fcntl(slave, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(settingsOf(pty).c_ospeed, 2400U) << "the caller's device stays as configured";

    ASSERT_EQ(device.adopt(slave), 1);
    ::close(slave);
    ASSERT_EQ(pty.write("x\n"), 2U);
    EXPECT_EQ(device.wait(COM_HOST_WAIT_READ, -1, 5000), static_cast<uint32_t>(COM_HOST_WAIT_READ));
    EXPECT_EQ(readAll(device), "x\n") << "the caller closed his own descriptor";
    int32_t pipes[2];
    ASSERT_EQ(pipe2(pipes, O_CLOEXEC), 0);
    EXPECT_EQ(device.adopt(pipes[0]), -ENOTTY);
    ::close(pipes[0]);
    ::close(pipes[1]);
    EXPECT_EQ(device.adopt(999999), -EBADF);
}

TEST(TtyAdopt, MasterLeavesTheSlavesSettings) {
    Pty pty;
    termios2 shell = settingsOf(pty);
    shell.c_lflag |= ICANON | ECHO;
    ASSERT_EQ(ioctl(pty.master(), TCSETS2, &shell), 0);
    Device device;
    ASSERT_EQ(device.adopt(pty.master()), 1);
    ASSERT_TRUE(device.setLineState(stateOf(device)));
    EXPECT_EQ(settingsOf(pty).c_lflag, shell.c_lflag);
}

TEST(TtyAdopt, HandedOutHandleServesOnePortAfterAnother) {
    Pty pty;
    const int32_t handle = ComHostOpenDevice(pty.slavePath().c_str());
    ASSERT_GE(handle, 0);
    for (int32_t round = 0; round < 2; ++round) {
        Device port;
        ASSERT_EQ(port.adopt(handle), 1);
        ASSERT_EQ(pty.write("x"), 1U);
        EXPECT_EQ(port.wait(COM_HOST_WAIT_READ, -1, 5000), static_cast<uint32_t>(COM_HOST_WAIT_READ));
        EXPECT_EQ(readAll(port), "x");
        port.cancel(true);
    }
    Device port;
    ASSERT_EQ(port.adopt(handle), 1);
    EXPECT_EQ(ComHostCloseDevice(handle), 1);
    Device other;
    EXPECT_EQ(other.open(pty.slavePath()), -EBUSY) << "the port still uses it";
    port.close();
    EXPECT_EQ(other.open(pty.slavePath()), 1);
}

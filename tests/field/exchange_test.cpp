// Ports opened by path; writing and reading that wait.
#include <future>

#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>

#include "field/field_port.h"
#include "support/pty.h"
#include "support/timing.h"

namespace brisolt::test {
namespace {

using namespace std::chrono_literals;

TEST(FieldOpen, TakesTheHighestFreeNumberAndGivesItBack) {
    ComHostMapDevice(128, "/dev/ttyS0"); // the program's
    const FieldPort a("null-modem:open"), b("null-modem:open");
    EXPECT_EQ(a.number, 127);
    EXPECT_EQ(b.number, 126);
    char path[64];
    ComHostGetDevicePath(127, path, sizeof path);
    EXPECT_STREQ(path, "null-modem:open");
    EXPECT_EQ(ComHostClose(a.number, 0), 1);
    ComHostGetDevicePath(127, path, sizeof path);
    EXPECT_STRNE(path, "null-modem:open");
}

TEST(FieldOpen, WhatIsWrongIsNamed) {
    const struct {
        const char *path, *framing, *named;
        int32_t code;
    } wrong[] = {
        {"null-modem:x?colour=red", nullptr, "\"colour=red\" is not possible here; possible: paced=yes", -25},
        {"null-modem:x?paced=yes&paced=yes", nullptr, "\"paced=yes\" is given a second time", -25},
        {"loop:x?paced&paced=no", nullptr, "\"paced=no\" is given a second time", -25},
        {"/dev/ttyS0?dtr=maybe", nullptr, "dtr cannot be \"maybe\"; possible: on, off, leave", -25},
        {"/dev/ttyS0?dtr=on&dtr=on", nullptr, "dtr is given twice", -25},
        {"/dev/ttyS0?zip=1", nullptr, "unknown option \"zip=1\"", -25},
        {"/dev/ttyS0?keep=0", nullptr, "no, yes, 1 to 1000000", -25},
        {"null-modem:x?marks=yes", nullptr, "marks is not possible here; possible: dtr, rts, close", -25},
        {"null-modem:x?rs485-echo=yes&rs485=rts", nullptr, "rs485-echo needs rs485=driver", -25},
        {"/dev/ttyS0?rs485-termination=off", nullptr, "rs485-termination needs rs485=driver", -25},
        {"loop:x?rs485-before=5", nullptr, "rs485-before needs rs485=driver or rs485=rts", -25},
        {"COM128?keep=no", nullptr, "/dev/ttyS127", -25}, // whose number the open itself takes
        {nullptr, nullptr, "no path", -1},
        {"usb:ffff:ffff:none", nullptr, "none fits", -25},
        {"null-modem:x", "9N1", "data bits are 4 to 8", -34},
        {"null-modem:x", "8X1", "parity is N, O, E, M or S", -33},
        {"null-modem:x", "8N3", "stop bits are 1, 1.5 or 2", -35},
    };
    for (const auto& [path, framing, named, code] : wrong) {
        EXPECT_EQ(ComHostOpen(path, 9600, framing), code) << named;
        EXPECT_NE(errorTextNow().find(named), std::string::npos) << errorTextNow();
    }
    EXPECT_EQ(ComHostOpen("loop:x", -1, nullptr), -1);
    EXPECT_NE(errorTextNow().find("a baud rate of -1"), std::string::npos) << errorTextNow();
    const Pty pty;
    EXPECT_EQ(ComHostOpen((pty.slavePath() + "?rs485=rts").c_str(), 9600, nullptr), -25);
    EXPECT_NE(errorTextNow().find("no RTS line"), std::string::npos) << errorTextNow();
}

TEST(FieldLine, IsSetInOneStepAndReadBack) {
    const FieldPort port("loop:line");
    EXPECT_EQ(ComHostSetLine(port.number, 9600, "7e1.5", COM_FLOW_RTS_CTS), 1);
    ComHostLineState state{};
    state.size = sizeof state;
    ASSERT_EQ(ComHostGetLine(port.number, &state), 1);
    EXPECT_EQ(state.baudRate, 9600U);
    EXPECT_EQ(state.dataBits, 7);
    EXPECT_EQ(state.parity, COM_HOST_PARITY_EVEN);
    EXPECT_EQ(state.stopBits, COM_HOST_STOP_1_5);
    EXPECT_NE(state.flags & COM_HOST_LINE_CTS_OUTPUT, 0U);
    for (const char* bad : {"", "8", "9N1"})
        EXPECT_EQ(ComHostSetLine(port.number, 0, bad, -1), bad[0] == '8' ? -33 : -34);
    EXPECT_EQ(ComHostSetLine(port.number, 0, nullptr, 6), -1);
}

TEST(FieldLine, LinesStartAsThePathAsks) {
    const FieldPort watcher("null-modem:start"), quiet("null-modem:start?dtr=off&rts=off");
    EXPECT_EQ(ComHostGetLines(watcher.number) & (COM_HOST_MODEM_DSR | COM_HOST_MODEM_CTS), 0);
    EXPECT_EQ(ComHostGetLines(quiet.number) & (COM_HOST_MODEM_DTR | COM_HOST_MODEM_RTS), 0);
    const ComHostCounters seen = watcher.counters();
    EXPECT_EQ(seen.cts + seen.dsr + seen.carrier, 0U) << "the open has raised a line";
    ComSetDTR(quiet.number);
    EXPECT_EQ(ComHostGetLines(watcher.number) & COM_HOST_MODEM_DSR, COM_HOST_MODEM_DSR);
    EXPECT_EQ(ComHostSetLine(quiet.number, 19200, nullptr, COM_FLOW_NONE), 1);
    EXPECT_EQ(ComHostGetLines(quiet.number) & COM_HOST_MODEM_RTS, 0) << "a setting raised it";
}

TEST(FieldExchange, EveryByteBothWaysAtOnce) {
    const Pty far;
    const FieldPort port(far.slavePath());
    const std::string bytes = pattern(1 << 20);
    auto sent = std::async(std::launch::async, [&] {
        std::size_t handed = 0;
        while (handed < bytes.size()) {
            const int32_t taken = port.write(bytes.substr(handed, 50000));
            if (taken <= 0)
                break;
            handed += static_cast<std::size_t>(taken);
        }
        return handed;
    });
    auto echo = std::async(std::launch::async, [&] { return far.write(bytes, 60s); });
    auto heard = std::async(std::launch::async, [&] { return far.read(bytes.size(), 60s); });
    EXPECT_EQ(port.read(bytes.size()), bytes);
    EXPECT_EQ(sent.get(), bytes.size());
    EXPECT_EQ(echo.get(), bytes.size());
    EXPECT_EQ(heard.get(), bytes);
    EXPECT_EQ(port.counters().received, bytes.size());
    EXPECT_EQ(port.counters().sent, bytes.size());
}

TEST(FieldExchange, BytesOfTwoWritersNeverMixAndNoWriterIsForgottenInItsTurn) {
    constexpr int32_t calls = 300, block = 6000;
    const Pty far;
    const FieldPort port(far.slavePath());
    auto hears = std::async(std::launch::async, [&] { return far.read(2 * calls * block, 60s); });
    const auto writer = [&port](char letter) {
        int32_t whole = 0;
        for (int32_t i = 0; i < calls; ++i)
            whole += port.write(std::string(block, letter), 20000) == block ? 1 : 0;
        return whole;
    };
    auto other = std::async(std::launch::async, writer, 'b');
    EXPECT_EQ(writer('a'), calls);
    EXPECT_EQ(other.get(), calls);
    const std::string heard = hears.get();
    ASSERT_EQ(heard.size(), 2U * calls * block);
    for (std::size_t i = 0; i < heard.size(); i += block)
        ASSERT_EQ(heard.substr(i, block), std::string(block, heard[i])) << "from " << i;
}

TEST(FieldExchange, WhatOthersQueueGoesBehindAWholeCall) {
    const Pty far;
    const FieldPort port(far.slavePath());
    auto whole = std::async(std::launch::async, [&] { return port.write(std::string(200000, 'A'), -1); });
    EXPECT_EQ(far.read(1), "A");
    std::string others(100, 'B');
    EXPECT_EQ(ComWrite(port.number, others.data(), 100), 100);
    const std::string heard = far.read(200099, 60s);
    EXPECT_EQ(whole.get(), 200000);
    EXPECT_EQ(heard.find('B'), 199999U);
}

TEST(FieldExchange, ADeviceThatTakesNothingLeavesTheRestToTheRing) {
    const Pty far;
    const FieldPort port(far.slavePath());
    const std::string bytes = pattern(60000);
    EXPECT_EQ(port.write(bytes, -1), 60000) << "the ring has room for it";
    const int32_t more = port.write(bytes, 0);
    EXPECT_LT(more, 60000);
    EXPECT_EQ(ComHostDrain(port.number, 600), 0);
    const std::string heard = far.read(60000 + static_cast<std::size_t>(std::max(more, 0)), 60s);
    EXPECT_EQ(heard.substr(0, 60000), bytes);
    EXPECT_EQ(ComHostDrain(port.number, -1), 1);
}

TEST(FieldExchange, ASignalEndsAReadAndACancelOfNothingDoesNot) {
    const FieldPort port("loop:ends");
    const auto read = [&port](int32_t milliseconds) {
        char byte = 0;
        return ComHostRead(port.number, &byte, 1, milliseconds);
    };
    EXPECT_EQ(read(0), 0);
    EXPECT_EQ(read(20), 0);
    ComCancel(port.number); // of nothing: it is not kept for the next
    EXPECT_EQ(read(20), 0);

    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);
    const pthread_t me = pthread_self();
    std::atomic<bool> over{false};
    std::thread interrupter([&] {
        while (!over) {
            pthread_kill(me, SIGUSR1);
            std::this_thread::sleep_for(20ms);
        }
    });
    EXPECT_EQ(read(-1), -5);
    over = true;
    interrupter.join();
}

TEST(FieldExchange, OneSignalEndsAWaitThatMovesOn) {
    const FieldPort far("null-modem:signals?paced=yes"), port("null-modem:signals?paced=yes");
    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);
    const pthread_t me = pthread_self();
    std::atomic<bool> over{false};
    std::thread reader([&] {
        while (!over)
            far.read(1, 20);
    });
    const std::string bytes = pattern(400'000); // half a minute of the line
    for (int32_t i = 0; i < 24; ++i) {
        const uint64_t before = port.counters().sent;
        std::thread interrupter([&] {
            eventually([&] { return port.counters().sent > before + 200; });
            std::this_thread::sleep_for(std::chrono::milliseconds(i));
            pthread_kill(me, SIGUSR1);
        });
        const auto start = std::chrono::steady_clock::now();
        EXPECT_GT(port.write(bytes, 10'000), 0) << "the part that was taken";
        EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << "round " << i;
        interrupter.join();
    }
    over = true;
    reader.join();
}

TEST(FieldExchange, TheDescriptorKeepsWhatNobodyAskedFor) {
    const Pty far;
    const FieldPort port(far.slavePath());
    const int descriptor = ComHostDescriptor(port.number);
    ASSERT_GE(descriptor, 0);
    far.write("abcdef");
    const auto waiting = [descriptor] {
        int count = 0;
        ioctl(descriptor, FIONREAD, &count);
        return count;
    };
    ASSERT_TRUE(eventually([&] { return waiting() == 6; }));
    EXPECT_EQ(port.read(2, 0), "ab");
    EXPECT_EQ(waiting(), 4);
    EXPECT_EQ(ComStatus(port.number), 4);
    EXPECT_EQ(ComGetc(port.number), 'c');
    char byte = 0;
    EXPECT_EQ(::read(descriptor, &byte, 1), 1);
    EXPECT_EQ(byte, 'd');
    EXPECT_EQ(port.read(2), "ef");
}

TEST(FieldClose, SaysWhetherBytesWereLeftBehind) {
    const Pty far;
    const int32_t idle = ComHostOpen(far.slavePath().c_str(), 9600, nullptr);
    EXPECT_EQ(ComHostClose(idle, 0), 1);
    const int32_t held = ComHostOpen(far.slavePath().c_str(), 9600, nullptr);
    ComHostWrite(held, pattern(60000).data(), 60000, 0);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(ComHostClose(held, 100), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 3s);
    EXPECT_EQ(ComHostClose(held, 0), -1);
}

} // namespace
} // namespace brisolt::test

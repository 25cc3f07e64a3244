// Ports opened by path; writing and reading that wait.
#include <csignal>
#include <future>

#include <pthread.h>

#include "field/field_port.h"
#include "support/pty.h"

namespace brisolt::test {
namespace {

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
        {"/dev/null", nullptr, "/dev/null: Inappropriate ioctl for device; it is not a serial device", -25},
        {nullptr, nullptr, "no path", -1},
        {"usb:1d6b:9999", nullptr, "usb:1d6b:9999: none fits", -25},
        {"usb:*:*:no such number", nullptr, "usb:*:*:no such number: none fits", -25},
        {"usb:", nullptr, "a USB device is usb:VID:PID", -25},
        {"usb:12345:1", nullptr, "usb:12345:1", -25},
        {"usb:xyz:1", nullptr, "usb:xyz:1", -25},
        {"usb:0403:6001:S:1:more", nullptr, "a USB device is", -25},
        {"null-modem:x?rs485=driver", nullptr, "rs485", -25},
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

TEST(FieldLine, StartsAsThePathAsksAndIsSetInOneStep) {
    const FieldPort watcher("null-modem:start"), quiet("null-modem:start?dtr=off&rts=off");
    EXPECT_EQ(ComHostGetLines(watcher.number) & (COM_HOST_MODEM_DSR | COM_HOST_MODEM_CTS), 0);
    EXPECT_EQ(ComHostGetLines(quiet.number) & (COM_HOST_MODEM_DTR | COM_HOST_MODEM_RTS), 0);
    const ComHostCounters seen = watcher.counters();
    EXPECT_EQ(seen.cts + seen.dsr + seen.carrier, 0U) << "the open has raised a line";
    ComSetDTR(quiet.number);
    EXPECT_EQ(ComHostGetLines(watcher.number) & COM_HOST_MODEM_DSR, COM_HOST_MODEM_DSR);
    EXPECT_EQ(ComHostSetLine(quiet.number, 19200, nullptr, COM_FLOW_NONE), 1);
    EXPECT_EQ(ComHostGetLines(quiet.number) & COM_HOST_MODEM_RTS, 0) << "a setting raised it";

    EXPECT_EQ(ComHostSetLine(quiet.number, 9600, "7e1.5", COM_FLOW_RTS_CTS), 1);
    for (const char* bad : {"", "8", "9N1"})
        EXPECT_EQ(ComHostSetLine(quiet.number, 300, bad, -1), bad[0] == '8' ? -33 : -34);
    EXPECT_EQ(ComHostSetLine(quiet.number, 300, "8N1", 6), -1);
    ComHostLineState state{};
    state.size = sizeof state;
    ASSERT_EQ(ComHostGetLine(quiet.number, &state), 1);
    EXPECT_EQ(state.baudRate, 9600U);
    EXPECT_EQ(state.stopBits, COM_HOST_STOP_1_5);
    EXPECT_NE(state.flags & COM_HOST_LINE_CTS_OUTPUT, 0U);
}

TEST(FieldExchange, BothWaysAtOnceNoByteIsLostAndThoseOfTwoWritersNeverMix) {
    constexpr int32_t calls = 300, length = 3000, total = calls * length * 3; // the other's are twice as long
    const Pty far;
    const FieldPort port(far.slavePath());
    const std::string bytes = pattern(1 << 20), blocks[] = {pattern(length, 1), pattern(2 * length, 2)};
    auto sends = std::async(std::launch::async, [&] { return far.write(bytes, 60s); });
    auto hears = std::async(std::launch::async, [&] { return far.read(total, 60s); });
    const auto writer = [&](int which) { // whose turn always comes
        int32_t whole = 0;
        for (int32_t i = 0; i < calls; ++i)
            whole += port.write(blocks[which], 20000) == (which + 1) * length ? 1 : 0;
        return whole;
    };
    auto one = std::async(std::launch::async, writer, 0), other = std::async(std::launch::async, writer, 1);
    EXPECT_TRUE(port.read(bytes.size()) == bytes);
    EXPECT_EQ(sends.get(), bytes.size());
    EXPECT_EQ(one.get(), calls);
    EXPECT_EQ(other.get(), calls);
    const std::string heard = hears.get();
    ASSERT_EQ(heard.size(), std::size_t{total});
    for (std::size_t i = 0; i < heard.size();) {
        const std::string& block = heard.compare(i, length, blocks[0]) == 0 ? blocks[0] : blocks[1];
        ASSERT_EQ(heard.compare(i, block.size(), block), 0) << i;
        i += block.size();
    }
    EXPECT_EQ(port.counters().received, bytes.size());
    EXPECT_EQ(port.counters().sent, heard.size());
}

// Who takes one byte has the other in the ring, where no watch over the device sees it.
TEST(FieldExchange, WhatOneReaderLeavesWakesTheOther) {
    const Pty far;
    const FieldPort port(far.slavePath());
    const auto begin = std::chrono::steady_clock::now();
    for (int32_t round = 0; round < 300; ++round) {
        auto other = std::async(std::launch::async, [&] { return port.read(1, 20000); });
        far.write("ab");
        const std::string mine = port.read(1, 20000);
        ASSERT_EQ(mine.size() + other.get().size(), 2U) << round;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 15s) << "a byte was found when the time was over";
}

TEST(FieldExchange, WhatAFullDeviceLeavesOfAShortWriteNeedsNoFurtherCall) {
    const Pty far;
    const FieldPort port(far.slavePath());
    for (uint64_t before = 0; before < 1'000'000; before = port.counters().sent) {
        std::string written;
        while (port.counters().sent == before + written.size()) {
            const std::string piece = pattern(1000, static_cast<uint32_t>(written.size()));
            ASSERT_EQ(port.write(piece, -1), 1000);
            written += piece;
        }
        ASSERT_TRUE(far.read(written.size(), 5s) == written) << before;
    }
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

TEST(FieldExchange, ADeviceThatTakesNothingLeavesTheRestToTheRingAndTheCloseTellsOfIt) {
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

    port.write(bytes, 0);
    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(ComHostClose(port.number, 100), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, 3s);
    EXPECT_EQ(ComHostClose(port.number, 0), -1);
}

TEST(FieldExchange, ASignalEndsAWaitAndACancelOfNothingDoesNot) {
    const FieldPort far("null-modem:signals?paced=yes"), port("null-modem:signals?paced=yes");
    char byte = 0;
    EXPECT_EQ(ComHostRead(port.number, &byte, 1, 0), 0);
    ComCancel(port.number); // of nothing: it is not kept for the next
    EXPECT_EQ(ComHostRead(port.number, &byte, 1, 20), 0);

    struct sigaction quiet {};
    quiet.sa_handler = [](int) {};
    sigaction(SIGUSR1, &quiet, nullptr);
    const pthread_t me = pthread_self();
    std::atomic<bool> over{false};
    std::thread repeater([&] {
        for (; !over; far.read(1, 20))
            pthread_kill(me, SIGUSR1);
    });
    EXPECT_EQ(ComHostRead(port.number, &byte, 1, -1), -5);
    over = true;
    repeater.join();

    // One is enough, although the wait moves on by itself.
    over = false;
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

} // namespace
} // namespace brisolt::test

// Lines with modem signals. No terminal of a test machine has any, so the requests for them are answered
// here; the modem at the other end is a pseudo terminal's.
#include <atomic>
#include <cstdarg>

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include "support/pty.h"
#include "telephony_program.h"

using namespace brisolt::test;
namespace service_ = brisolt::service;
namespace state = brisolt::service::callState;
namespace cause = brisolt::service::disconnectedBy;

namespace {

struct Signals {
    std::atomic<bool> there{false}, carrier{false}, dtr{true};
    std::atomic<int> dtrDrops{0};
} signals;

int answerFor(unsigned long request, int* lines) {
    if (request == TIOCMGET)
        *lines = signals.carrier ? TIOCM_CAR : 0;
    if (request == TIOCMBIS && (*lines & TIOCM_DTR) != 0)
        signals.dtr = true;
    if (request == TIOCMBIC && (*lines & TIOCM_DTR) != 0) {
        signals.dtr = false;
        ++signals.dtrDrops;
    }
    return 0;
}

} // namespace

/// Stands before the host's own.
extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (signals.there && (request == TIOCMGET || request == TIOCMBIS || request == TIOCMBIC))
        return answerFor(request, static_cast<int*>(argument));
    return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

namespace {

struct ModemSignals : TelephonyProgram {
    Pty modem;
    uint32_t line = 0, outgoing = 0;
    int handle = -1;
    std::atomic<bool> over{false};
    std::thread obedience;

    /// A modem that connects at once when it is told to dial, and says OK to all else.
    void obey() {
        std::string commands;
        bool online = false;
        while (!over) {
            commands += online ? "" : modem.read(1, Milliseconds(20));
            if (online && !signals.dtr) {
                signals.carrier = online = false;
                modem.write("\r\nNO CARRIER\r\n");
            }
            if (!commands.ends_with('\r'))
                continue;
            online = commands.starts_with("ATD");
            signals.carrier = online;
            modem.write(online ? "\r\nCONNECT\r\nhello" : "\r\nOK\r\n");
            commands.clear();
        }
    }
    void SetUp() override {
        signals.there = true;
        ASSERT_EQ(start("[One]\ndevice = " + modem.slavePath() + "\n"), 0);
        obedience = std::thread([this] { obey(); });
        ASSERT_EQ(openLine(0, line), 0);
        ASSERT_GT(service.makeCall(line, &outgoing, "T1", 0, nullptr), 0);
        untilState(outgoing, state::connected);
        handle = commHandle(outgoing);
    }
    ~ModemSignals() override {
        over = true;
        obedience.join();
        close(handle);
    }
};

} // namespace

TEST_F(ModemSignals, TheProgramGetsTheLineItself) {
    struct stat ours {};
    struct stat lines {};
    EXPECT_EQ(fstat(handle, &ours), 0);
    EXPECT_EQ(stat(modem.slavePath().c_str(), &lines), 0);
    EXPECT_EQ(ours.st_rdev, lines.st_rdev);
    EXPECT_EQ(readFrom(handle, 5), "hello");
    modem.write("\r\nNO CARRIER\r\n");
    EXPECT_EQ(readFrom(handle, 14), "\r\nNO CARRIER\r\n") << "words of the other end, while there is carrier";
    writeTo(handle, "to it");
    EXPECT_EQ(modem.read(5), "to it");

    const int second = commHandle(outgoing);
    EXPECT_NE(second, handle) << "each is its receiver's to close";
    close(second);
    modem.write("last words");
    signals.carrier = false;
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
    EXPECT_EQ(readFrom(handle, 10), "last words") << "nobody else reads them";
    EXPECT_EQ(service.deallocate(outgoing), 0);
    EXPECT_TRUE(until([&] {
        modem.write("\r\nRING\r\n");
        return received().back().message == service_::message::lineDeviceState;
    })) << "the line is back";
}

TEST_F(ModemSignals, HangsUpByDtr) {
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    untilState(outgoing, state::idle);
    EXPECT_EQ(signals.dtrDrops, 1);
    EXPECT_TRUE(signals.dtr) << "raised again for the next call";
    EXPECT_FALSE(signals.carrier);
}

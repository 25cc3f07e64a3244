// Lines with modem signals. No terminal of a test machine has any, so the requests for them are answered
// here; the modem at the other end is a pseudo terminal's.
#include <cstdarg>

#include <sys/ioctl.h>
#include <sys/syscall.h>

#include "telephony_program.h"

using namespace brisolt::test;

static std::atomic<PlainModem*> signalling = nullptr;
static std::atomic<bool> dtr = true;
static std::atomic<int> dtrDrops = 0;

/// Stands before the host's own.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    int* const lines = va_arg(arguments, int*);
    va_end(arguments);
    PlainModem* const modem = signalling;
    if (modem == nullptr || (request != TIOCMGET && request != TIOCMBIS && request != TIOCMBIC))
        return static_cast<int>(syscall(SYS_ioctl, fd, request, lines));
    if (request == TIOCMGET) {
        *lines = modem->online ? TIOCM_CAR : 0;
    } else if ((*lines & TIOCM_DTR) != 0) {
        dtr = request == TIOCMBIS;
        dtrDrops += dtr ? 0 : 1;
        modem->online = modem->online && dtr;
    }
    return 0;
}

TEST_F(TelephonyProgram, TheProgramGetsTheLineItselfAndDtrHangsUp) {
    PlainModem modem("\r\nCONNECT\r\nhello");
    signalling = &modem;
    callOver(modem);
    const int handle = commHandle(outgoing), second = commHandle(outgoing);
    EXPECT_EQ(ttyname(handle), modem.line.slavePath());
    EXPECT_NE(second, handle) << "each is its receiver's to close";
    close(second);
    EXPECT_EQ(readFrom(handle, 5), "hello");
    modem.line.write("\r\nNO CARRIER\r\n");
    EXPECT_EQ(readFrom(handle, 14), "\r\nNO CARRIER\r\n") << "words of the other end, while there is carrier";
    writeTo(handle, "to it");
    EXPECT_EQ(modem.line.read(5), "to it");

    modem.line.write("last words");
    modem.online = false;
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::normal);
    EXPECT_EQ(readFrom(handle, 10), "last words") << "nobody else reads them";
    close(handle);
    EXPECT_EQ(service.deallocate(outgoing), 0);
    EXPECT_TRUE(until([&] {
        modem.line.write("\r\nRING\r\n");
        return received.back().message == service_::message::lineDeviceState;
    })) << "the line is back";

    outgoing = call("T1");
    untilState(outgoing, state::connected);
    EXPECT_GT(service.drop(outgoing, nullptr, 0), 0);
    untilState(outgoing, state::idle);
    EXPECT_EQ(dtrDrops, 1);
    EXPECT_TRUE(dtr) << "raised again for the next call";
    EXPECT_FALSE(modem.online);
    service.shutdown(std::exchange(application, 0));
    signalling = nullptr;
}

// What the tests on real serial drivers share: the library's port, the far end of its line, and witnesses
// that ask the kernel and the hardware what the library has made of them.
#pragma once

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <string_view>
#include <thread>

#include <asm/termbits.h>
#include <sys/ioctl.h>

#include <gtest/gtest.h>

#include "field/field_port.h"
#include "port/ports.h"
#include "support/descriptor_io.h"

namespace brisolt::test {

using Milliseconds = std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr auto async = std::launch::async;
constexpr auto soon = Milliseconds(300); ///< for what must not happen; faults that need longer go unseen
constexpr auto patience = std::chrono::seconds(20); ///< for what must happen; only a fault takes it up

// Two UARTs, wired to each other. Nobody drives the modem lines between them.
constexpr const char* uart = "/dev/ttyS1";
constexpr const char* otherUart = "/dev/ttyS2";
constexpr uint16_t uartAddress = 0x2F8;
// A UART on which the bytes FF F3 from the other one arrive as a break.
constexpr const char* breakUart = "/dev/ttyS4";
constexpr const char* breakSender = "/dev/ttyS5";
// An adapter, wired to a UART. An equal one, ttyUSB1, is wired to nothing.
constexpr const char* adapter = "/dev/ttyUSB0";
constexpr const char* adapterFarEnd = "/dev/ttyS3";
// A USB modem and the gadget that is its other end.
constexpr const char* usbModem = "/dev/ttyACM0";
constexpr const char* gadget = "/dev/ttyGS0";

/// A device and the far end of its line.
using Line = std::pair<const char*, const char*>;
inline std::string nameOfLine(const testing::TestParamInfo<Line>& line) {
    return line.param.first + sizeof "/dev";
}

template <class Result> bool stillRunning(const std::future<Result>& result) {
    return result.wait_for(soon) == std::future_status::timeout;
}
template <class Result> bool finishes(const std::future<Result>& result) {
    return result.wait_for(patience) == std::future_status::ready;
}

/// The library's port on a device, closed at the end of the test.
class Port {
public:
    explicit Port(const std::string& path, int32_t number = 1) : number_(number) {
        EXPECT_EQ(openOn(number, path), number) << path << ": " << errorTextNow();
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port() { ComClose(number_); }

    operator int32_t() const { return number_; }

private:
    int32_t number_;
};

inline std::future<int32_t> sendAside(int32_t port, const std::string& bytes) {
    return std::async(async, [=] { return send(port, bytes); });
}
inline std::string receiveToQuiet(int32_t port) {
    return receiveWithin(soon * 3, port, 1 << 20);
}
/// A close that waits for nobody.
void expectQuickClose(int32_t port);

/// `count` bytes in which every place can be told from its neighbours.
std::string letters(std::size_t count);

/// A tty opened as any other program would.
class Tty {
public:
    enum class As { farEnd, witness };
    /// A far end is raw, at 9600 baud, 8 data bits, without flow control; a witness changes nothing.
    explicit Tty(const std::string& path, As role = As::farEnd);
    Tty(const Tty&) = delete;
    Tty& operator=(const Tty&) = delete;
    ~Tty();

    void write(std::string_view bytes) const {
        EXPECT_EQ(writeTo(descriptor_, bytes, patience), bytes.size());
    }
    std::string read(std::size_t count, Milliseconds limit = patience) const {
        return readFrom(descriptor_, count, limit);
    }
    std::string readToQuiet() const { return test::readToQuiet(descriptor_, soon * 2); }

    int descriptor() const { return descriptor_; }
    termios2 settings() const {
        termios2 now{};
        EXPECT_EQ(ioctl(descriptor_, TCGETS2, &now), 0);
        return now;
    }
    bool set(const termios2& settings) const { return ioctl(descriptor_, TCSETS2, &settings) == 0; }
    int32_t unsent() const { ///< in the kernel's queue
        int32_t bytes = -1;
        EXPECT_EQ(ioctl(descriptor_, TIOCOUTQ, &bytes), 0);
        return bytes;
    }
    void raise(int32_t lines) const { EXPECT_EQ(ioctl(descriptor_, TIOCMBIS, &lines), 0); }
    void lower(int32_t lines) const { EXPECT_EQ(ioctl(descriptor_, TIOCMBIC, &lines), 0); }

private:
    int descriptor_;
};

/// Bytes pass both ways.
void expectTalk(int32_t port, const Tty& far);

/// A register of the UART.
uint8_t uartRegister(uint16_t index);
constexpr uint16_t lineControl = 3, modemControl = 4, lineStatus = 5;
void writeUartRegister(uint16_t index, uint8_t value);

/// The UART's loopback: what it sends it receives, DTR is its DSR, RTS its CTS, OUT1 its ring indicator and
/// OUT2 its carrier.
class Loopback : public Tty {
public:
    static constexpr int32_t dtr = 0x002, rts = 0x004, out1 = 0x2000, out2 = 0x4000, loop = 0x8000;
    Loopback() : Tty(uart, As::witness) { raise(loop); }
    Loopback(const Loopback&) = delete;
    Loopback& operator=(const Loopback&) = delete;
    ~Loopback();

    /// Holds off what the library writes under CTS flow control, or lets it go on.
    void holdOff(bool hold) const;
};

/// The USB gadget: the far end of the USB modem, or of a plain adapter. Restored at the end.
class Gadget {
public:
    enum class Kind { modem, plain };
    explicit Gadget(Kind kind = Kind::modem);
    Gadget(const Gadget&) = delete;
    Gadget& operator=(const Gadget&) = delete;
    ~Gadget();

    void unplug();
    void plug();
    /// The device at our end.
    std::string path() const { return kind_ == Kind::modem ? usbModem : "/dev/ttyUSB2"; }

private:
    Kind kind_;
    bool plugged_ = true;
};

/// What the process has used so far.
struct Usage {
    std::chrono::nanoseconds processor{};
    uint64_t wakeUps = 0; ///< of all threads but the calling one
};
Usage usage();

} // namespace brisolt::test

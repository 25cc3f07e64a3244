#include "guest.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <unistd.h>

namespace brisolt::test {

namespace {

void run(const std::string& command) {
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

void expectGadget(const std::string& device) {
    EXPECT_TRUE(eventually([&] {
        return std::filesystem::exists(device) && std::filesystem::exists(gadget);
    })) << device;
}

} // namespace

void expectQuickClose(int32_t port) {
    const auto start = Clock::now();
    EXPECT_EQ(ComClose(port), 1);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(8));
}

std::string letters(std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>('A' + (i + i / 61) % 53);
    return bytes;
}

Tty::Tty(const std::string& path, As role)
    : descriptor_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {
    EXPECT_GE(descriptor_, 0) << path;
    if (role == As::witness)
        return;
    termios2 raw = settings();
    raw.c_iflag = IGNBRK;
    raw.c_oflag = 0;
    raw.c_lflag = 0;
    raw.c_cflag = B9600 | CS8 | CREAD | CLOCAL | HUPCL;
    EXPECT_TRUE(set(raw));
}

Tty::~Tty() {
    ioctl(descriptor_, TCFLSH, TCIOFLUSH); // what nobody reads would hold up the close
    ::close(descriptor_);
}

void expectTalk(int32_t port, const Tty& far) {
    EXPECT_EQ(send(port, "out"), 3);
    EXPECT_EQ(far.read(3), "out");
    far.write("in");
    EXPECT_EQ(receive(port, 2), "in");
}

uint8_t uartRegister(uint16_t index) {
    const int ports = ::open("/dev/port", O_RDONLY | O_CLOEXEC);
    uint8_t value = 0;
    EXPECT_EQ(pread(ports, &value, 1, uartAddress + index), 1);
    ::close(ports);
    return value;
}

void writeUartRegister(uint16_t index, uint8_t value) {
    const int ports = ::open("/dev/port", O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(pwrite(ports, &value, 1, uartAddress + index), 1);
    ::close(ports);
}

Loopback::~Loopback() {
    lower(loop | out1);
    raise(out2); // the kernel wants it for its interrupts
}

// This UART raises no interrupt when a line moves in loopback. The kernel looks at the lines anew when a
// setting changes, whichever it is.
void Loopback::holdOff(bool hold) const {
    hold ? lower(rts) : raise(rts);
    termios2 touched = settings();
    touched.c_cflag ^= HUPCL;
    EXPECT_TRUE(set(touched));
}

Gadget::Gadget(Kind kind) : kind_(kind) {
    expectGadget(usbModem); // the machine may just have started
    if (kind == Kind::modem)
        return;
    unplug();
    plug();
}

Gadget::~Gadget() {
    if (plugged_ && kind_ == Kind::modem)
        return;
    if (plugged_)
        unplug();
    kind_ = Kind::modem;
    plug();
}

void Gadget::unplug() {
    run("rmmod g_serial");
    plugged_ = false;
}

void Gadget::plug() {
    run(kind_ == Kind::modem ? "modprobe g_serial" : "modprobe g_serial use_acm=0");
    plugged_ = true;
    expectGadget(path());
}

Usage usage() {
    Usage sum{.processor = processorTime(CLOCK_PROCESS_CPUTIME_ID)};
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == std::to_string(gettid()))
            continue;
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);)
            if (const auto colon = line.find("_ctxt_switches:"); colon != std::string::npos)
                sum.wakeUps += std::stoull(line.substr(line.find(':') + 1));
    }
    return sum;
}

} // namespace brisolt::test

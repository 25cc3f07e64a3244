#include "guest.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include "support/descriptor_io.h"

namespace brisolt::test {

namespace {

void run(const std::string& command) {
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

constexpr int32_t loop = 0x8000;

} // namespace

Port::Port(const std::string& path, int32_t number) : number_(number) {
    EXPECT_EQ(openOn(number, path), number) << path << ": " << errorText();
}

std::future<int32_t> sendAside(int32_t port, std::string bytes) {
    return std::async(async, [port, bytes = std::move(bytes)] { return send(port, bytes); });
}

void expectQuickClose(int32_t port) {
    const auto start = Clock::now();
    EXPECT_EQ(ComClose(port), 1);
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(8));
}

std::string errorText() {
    std::array<char, 300> text{};
    ComHostGetErrorText(text.data(), static_cast<int32_t>(text.size()));
    return text.data();
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

std::string stty(const std::string& path) {
    const std::string command = "stty -a 2>/dev/null <" + path; // it misses a window size
    FILE* output = popen(command.c_str(), "r");
    std::string text;
    for (int c = fgetc(output); c != EOF; c = fgetc(output))
        text += c == '\n' || c == ';' ? ' ' : static_cast<char>(c);
    EXPECT_EQ(pclose(output), 0) << command;
    return ' ' + text + ' ';
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

Loopback::Loopback() {
    tty_.raise(loop);
}

Loopback::~Loopback() {
    tty_.lower(loop | out1);
    tty_.raise(out2); // the kernel wants it for its interrupts
}

// This UART raises no interrupt when a line moves in loopback. The kernel looks at the lines anew when a
// setting changes, whichever it is.
void Loopback::holdOff(bool hold) const {
    hold ? lower(rts) : raise(rts);
    termios2 touched = tty_.settings();
    touched.c_cflag ^= HUPCL;
    EXPECT_TRUE(tty_.set(touched));
}

Gadget::Gadget(Kind kind) : kind_(kind) {
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
    const std::string device = path();
    EXPECT_TRUE(eventually([&] {
        return std::filesystem::exists(device) && std::filesystem::exists(gadget);
    })) << device;
}

Usage usage() {
    Usage sum;
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    sum.processor = std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
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

#include "guest.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace brisolt::test {

namespace {

void run(const std::string& command) {
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
}

constexpr int32_t loop = 0x8000;

} // namespace

Port::Port(const std::string& path, int32_t number, int32_t baudRate) : number_(number) {
    ComHostMapDevice(number, path.c_str());
    const int32_t opened = ComOpen("COM", number, baudRate, 8, 1, 1, 8192, 8192);
    std::array<char, 300> why{};
    if (opened != number)
        ComHostGetErrorText(why.data(), static_cast<int32_t>(why.size()));
    EXPECT_EQ(opened, number) << path << ": " << why.data();
}

int32_t send(int32_t port, std::string bytes) {
    return ComWrite(port, bytes.data(), static_cast<int32_t>(bytes.size()));
}

std::future<int32_t> sendAside(int32_t port, std::string bytes) {
    return std::async(async, [port, bytes = std::move(bytes)] { return send(port, bytes); });
}

std::string receive(int32_t port, std::size_t count, Milliseconds limit) {
    std::string bytes(count, '\0');
    std::size_t got = 0;
    eventually(
        [&] {
            const int32_t more = ComRead(port, bytes.data() + got, static_cast<int32_t>(count - got));
            got += more > 0 ? static_cast<std::size_t>(more) : 0;
            return got == count;
        },
        limit);
    bytes.resize(got);
    return bytes;
}

std::string receiveToQuiet(int32_t port) {
    std::string all;
    while (true) {
        const std::string more = receive(port, 1 << 20, soon * 2);
        if (more.empty())
            return all;
        all += more;
    }
}

std::string pattern(std::size_t count) {
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

void Tty::close() {
    if (descriptor_ < 0)
        return;
    ioctl(descriptor_, TCFLSH, TCIOFLUSH); // what nobody reads would hold up the close
    ::close(descriptor_);
    descriptor_ = -1;
}

void Tty::write(std::string_view bytes) const {
    const auto end = Clock::now() + patience;
    while (!bytes.empty() && Clock::now() < end) {
        const ssize_t taken = ::write(descriptor_, bytes.data(), bytes.size());
        if (taken > 0)
            bytes.remove_prefix(static_cast<std::size_t>(taken));
        pollfd self{descriptor_, POLLOUT, 0};
        poll(&self, 1, 100);
    }
    EXPECT_TRUE(bytes.empty()) << bytes.size() << " bytes not taken";
}

std::string Tty::read(std::size_t count, Milliseconds limit) const {
    std::string bytes;
    std::array<char, 4096> part{};
    const auto end = Clock::now() + limit;
    while (bytes.size() < count && Clock::now() < end) {
        pollfd self{descriptor_, POLLIN, 0};
        const auto left = std::chrono::duration_cast<Milliseconds>(end - Clock::now());
        poll(&self, 1, static_cast<int>(left.count()) + 1);
        const ssize_t got = ::read(descriptor_, part.data(), std::min(part.size(), count - bytes.size()));
        if (got > 0)
            bytes.append(part.data(), static_cast<std::size_t>(got));
        else if (got == 0)
            break;
    }
    return bytes;
}

std::string Tty::readToQuiet() const {
    std::string all;
    while (true) {
        const std::string more = read(1, soon * 2);
        if (more.empty())
            return all;
        all += more + read(4095, Milliseconds(0));
    }
}

termios2 Tty::settings() const {
    termios2 now{};
    EXPECT_EQ(ioctl(descriptor_, TCGETS2, &now), 0);
    return now;
}

bool Tty::set(const termios2& settings) const {
    return ioctl(descriptor_, TCSETS2, &settings) == 0;
}

int32_t Tty::unsent() const {
    int32_t bytes = -1;
    EXPECT_EQ(ioctl(descriptor_, TIOCOUTQ, &bytes), 0);
    return bytes;
}

int32_t Tty::lines() const {
    int32_t lines = 0;
    EXPECT_EQ(ioctl(descriptor_, TIOCMGET, &lines), 0);
    return lines;
}

void Tty::raise(int32_t lines) const {
    EXPECT_EQ(ioctl(descriptor_, TIOCMBIS, &lines), 0);
}

void Tty::lower(int32_t lines) const {
    EXPECT_EQ(ioctl(descriptor_, TIOCMBIC, &lines), 0);
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

std::string Gadget::path() const {
    return kind_ == Kind::modem ? usbModem : "/dev/ttyUSB1";
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

#include "relay.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>

namespace brisolt::service {

namespace {

/// A side that does not take its bytes holds the other one off from here on.
constexpr std::size_t enough = 4096;

/// Bytes pass as they are, at the speed that the line has.
void makeRaw(int terminal, uint32_t speed) {
    termios2 settings{};
    if (ioctl(terminal, TCGETS2, &settings) != 0)
        return;
    settings.c_iflag = IGNBRK;
    settings.c_oflag = 0;
    settings.c_lflag = 0;
    settings.c_cflag = BOTHER | (static_cast<tcflag_t>(BOTHER) << IBSHIFT) | CS8 | CREAD | CLOCAL;
    settings.c_ospeed = settings.c_ispeed = speed;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    ioctl(terminal, TCSETS2, &settings);
}

Descriptor openSlave(int master) {
    int unlocked = 0;
    if (ioctl(master, TIOCSPTLCK, &unlocked) != 0)
        return Descriptor();
    return Descriptor(ioctl(master, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
}

} // namespace

bool Relay::open(uint32_t speed) {
    close();
    master_ = Descriptor(::open("/dev/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (master_)
        slave_ = openSlave(master_.get());
    if (!slave_) {
        close();
        return false;
    }
    makeRaw(slave_.get(), speed);
    return true;
}

void Relay::close() noexcept {
    slave_.close();
    master_.close();
    text_ = {};
    forProgram_.clear();
    forLine_.clear();
}

int Relay::watch(const SerialLine& line, std::span<pollfd, 2> entries) const {
    const auto wanted = [](bool room, bool bytes) {
        return static_cast<short>((room ? POLLIN : 0) | (bytes ? POLLOUT : 0));
    };
    entries[0] = {line.descriptor(), wanted(forProgram_.size() < enough, !forLine_.empty()), 0};
    entries[1] = {master_.get(), wanted(forLine_.size() < enough, !forProgram_.empty()), 0};
    if (!text_.due())
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*text_.due() - CarrierText::Clock::now());
    return static_cast<int>(std::max<int64_t>(left.count(), 0));
}

bool Relay::fromLine(const SerialLine& line) {
    std::array<char, 1024> bytes{};
    ssize_t count = 0;
    while (forProgram_.size() < enough && (count = line.read(bytes.data(), bytes.size())) > 0)
        text_.take({bytes.data(), static_cast<std::size_t>(count)}, CarrierText::Clock::now(), forProgram_);
    return count >= 0;
}

bool Relay::toLine(const SerialLine& line) {
    std::array<char, 1024> bytes{};
    ssize_t count = 0;
    while (forLine_.size() < enough && (count = read(master_.get(), bytes.data(), bytes.size())) > 0)
        forLine_.append(bytes.data(), static_cast<std::size_t>(count));
    const ssize_t sent = forLine_.empty() ? 0 : line.write(forLine_);
    forLine_.erase(0, static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
    return sent >= 0;
}

Relay::State Relay::turn(const SerialLine& line) {
    const bool there = fromLine(line) && toLine(line);
    const bool lost = text_.settle(CarrierText::Clock::now(), forProgram_);
    deliver();
    return !there ? State::deviceGone : lost ? State::carrierLost : State::talking;
}

void Relay::deliver() {
    const ssize_t count =
        forProgram_.empty() ? 0 : write(master_.get(), forProgram_.data(), forProgram_.size());
    forProgram_.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
}

bool Relay::drain(const SerialLine& line) {
    return toLine(line) && !forLine_.empty();
}

} // namespace brisolt::service

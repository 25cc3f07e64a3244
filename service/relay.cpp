#include "relay.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>

#include "terminal_settings.h"

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

/// A side that does not take its bytes holds the other one off from here on.
constexpr std::size_t enough = 4096;
constexpr std::size_t atOnce = 1024;

/// For a program to make a port of its end once it has it; many read it as it is.
constexpr auto comingPatience = 2s;

Descriptor openSlave(int master) noexcept {
    int unlocked = 0;
    if (ioctl(master, TIOCSPTLCK, &unlocked) != 0)
        return Descriptor();
    return Descriptor(throughSignals(
        [=] { return ioctl(master, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
}

/// Raw, and its master told of what is discarded.
bool setUp(int master, int slave, uint32_t speed) noexcept {
    termios2 settings{};
    int on = 1;
    if (ioctl(slave, TCGETS2, &settings) != 0 || ioctl(master, TIOCPKT, &on) != 0)
        return false;
    makeRaw(settings, speed);
    return ioctl(slave, TCSETS2, &settings) == 0;
}

void dropFront(std::string& bytes, ssize_t count) {
    bytes.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
}

} // namespace

bool Relay::open(uint32_t speed) noexcept try {
    close();
    // The most that they come to hold, so that a call does not depend on memory that may run short.
    forProgram_.reserve(enough + atOnce + CarrierText::mostKept);
    forLine_.reserve(enough + atOnce);
    master_ = Descriptor(
        throughSignals([] { return ::open("/dev/ptmx", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); }));
    if (master_)
        slave_ = openSlave(master_.get());
    if (slave_ && setUp(master_.get(), slave_.get(), speed)) {
        patience_ = Clock::now() + comingPatience;
        return true;
    }
    close();
    return false;
} catch (const std::bad_alloc&) {
    return false;
}

void Relay::close() noexcept {
    slave_.close();
    master_.close();
    text_ = {};
    forProgram_.clear();
    forLine_.clear();
    program_ = Program::absent;
    lost_ = false;
}

void Relay::advance(Program to) noexcept {
    if (program_ == Program::absent)
        patience_ = Clock::now() + comingPatience;
    program_ = std::max(program_, to);
}

/// The library discards several times while it makes a port, and says when it has one. A program that uses its end
/// in another way is there when it sends something, or has had its time.
void Relay::meet(Clock::time_point now) noexcept {
    const bool coming = program_ == Program::comes || program_ == Program::discarding;
    if (coming && (now >= patience_ || !forLine_.empty()))
        program_ = Program::there;
}

Until Relay::watch(const SerialLine& line, std::span<pollfd, 2> entries) const noexcept {
    const auto wanted = [](bool room, bool bytes) {
        return static_cast<short>((room ? POLLIN : 0) | (bytes ? POLLOUT : 0));
    };
    const bool there = program_ == Program::there;
    const bool room = forProgram_.size() < enough && !lost_;
    entries[0] = {line.descriptor(), wanted(room, !forLine_.empty()), 0};
    entries[1] = {master_.get(), wanted(forLine_.size() < enough, there && !forProgram_.empty()), 0};
    Until next = text_.due();
    if (program_ != Program::there && (program_ != Program::absent || lost_))
        next = sooner(next, patience_);
    return next;
}

bool Relay::fromLine(const SerialLine& line) {
    std::array<char, atOnce> bytes{};
    ssize_t count = 0;
    while (forProgram_.size() < enough && !lost_ && (count = line.read(bytes.data(), bytes.size())) > 0)
        text_.take({bytes.data(), static_cast<std::size_t>(count)}, Clock::now(), forProgram_);
    return count >= 0;
}

/// What comes from the terminal is headed by a byte: 0 and it is what the program has sent, else it is what
/// the program has done to its end.
bool Relay::fromProgram() {
    std::array<char, atOnce> bytes{};
    ssize_t count = 0;
    while (forLine_.size() < enough &&
           (count = countOf(read(master_.get(), bytes.data(), bytes.size()))) > 0) {
        if (bytes[0] == TIOCPKT_DATA)
            forLine_.append(bytes.data() + 1, static_cast<std::size_t>(count - 1));
        else if ((bytes[0] & TIOCPKT_FLUSHREAD) != 0)
            advance(Program::discarding);
    }
    return count >= 0;
}

bool Relay::toLine(const SerialLine& line) {
    const bool there = fromProgram();
    meet(Clock::now());
    const ssize_t sent = forLine_.empty() ? 0 : line.write(forLine_);
    dropFront(forLine_, sent);
    return there && sent >= 0;
}

Relay::State Relay::turn(const SerialLine& line) {
    bool connected = fromLine(line) && toLine(line);
    const auto now = Clock::now();
    lost_ = text_.settle(now, forProgram_) || lost_;
    if (program_ == Program::there || !connected)
        connected = deliver() && connected;
    // A program that is coming is told of the end when it has come, and may read what there was.
    const bool told = lost_ && (program_ == Program::there || now >= patience_);
    return !connected ? State::deviceGone : told ? State::carrierLost : State::talking;
}

/// False: the terminal does not take it, and never will.
bool Relay::deliver() {
    if (forProgram_.empty())
        return true;
    const ssize_t count = countOf(write(master_.get(), forProgram_.data(), forProgram_.size()));
    if (count < 0)
        forProgram_.clear();
    dropFront(forProgram_, count);
    return count >= 0;
}

bool Relay::drain(const SerialLine& line) {
    return toLine(line) && !forLine_.empty();
}

} // namespace brisolt::service

// What the host offers: the measure of the others.
#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "network_end.h"
#include "side.h"

namespace bench {
namespace {

std::size_t checked(ssize_t count) {
    if (count <= 0)
        throw std::system_error(errno, std::generic_category(), "raw line");
    return static_cast<std::size_t>(count);
}

/// Waits as everybody must who does not want to wait for ever: a blocking read has no time limit.
void await(int descriptor, short events) {
    pollfd entry{descriptor, events, 0};
    checked(poll(&entry, 1, 10000));
}

class Descriptor {
public:
    explicit Descriptor(const std::string& path)
        : fd_(isOverNetwork(path) ? connectTo(path)
                                  : open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
        if (isOverNetwork(path))
            return;
        termios settings{};
        if (fd_ < 0 || tcgetattr(fd_, &settings) != 0)
            throw std::system_error(errno, std::generic_category(), path);
        cfmakeraw(&settings);
        tcsetattr(fd_, TCSANOW, &settings);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(fd_); }

    int fd() const { return fd_; }

private:
    int fd_;
};

class RawLine : public Line {
public:
    explicit RawLine(const std::string& path) : line_(path) {}

    void roundTrip() override {
        char byte = 'x';
        checked(write(fd_, &byte, 1));
        receive(&byte, 1, 1);
    }

    void receive(char* to, std::size_t total, std::size_t call) override {
        for (std::size_t got = 0; got < total;) {
            await(fd_, POLLIN);
            got += checked(read(fd_, to + got, std::min(call, total - got)));
        }
    }

    void send(char* from, std::size_t total, std::size_t call) override {
        for (std::size_t sent = 0; sent < total;) {
            const ssize_t count = write(fd_, from + sent, std::min(call, total - sent));
            if (count < 0 && errno == EAGAIN)
                await(fd_, POLLOUT);
            else
                sent += checked(count);
        }
    }

    void exchange(char* to, char* from, std::size_t total, std::size_t call) override {
        for (std::size_t got = 0, sent = 0; got < total || sent < total;) {
            pollfd entry{fd_, static_cast<short>(sent < total ? POLLIN | POLLOUT : POLLIN), 0};
            checked(poll(&entry, 1, 10000));
            if ((entry.revents & POLLIN) != 0)
                got += checked(read(fd_, to + got, std::min(call, total - got)));
            if ((entry.revents & POLLOUT) != 0)
                sent += checked(write(fd_, from + sent, std::min(call, total - sent)));
        }
    }

    std::size_t waiting() override {
        int count = 0;
        ioctl(fd_, FIONREAD, &count);
        return static_cast<std::size_t>(count);
    }

    void readSingly(char* to, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i)
            checked(read(fd_, to + i, 1));
    }

private:
    Descriptor line_;
    const int fd_ = line_.fd();
};

class RawLines : public Lines {
public:
    RawLines(const std::vector<std::string>& paths, bool byEpoll) {
        if (byEpoll)
            epoll_ = epoll_create1(EPOLL_CLOEXEC);
        for (const std::string& path : paths) {
            lines_.push_back(std::make_unique<Descriptor>(path));
            entries_.push_back({lines_.back()->fd(), POLLIN, 0});
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u64 = entries_.size() - 1;
            if (byEpoll && epoll_ctl(epoll_, EPOLL_CTL_ADD, entries_.back().fd, &event) != 0)
                throw std::system_error(errno, std::generic_category(), "epoll");
            // Whoever works with bare descriptors has to bring buffers; the values make them resident.
            buffers_.emplace_back(2 * smallBuffer, 'x');
        }
    }

    ~RawLines() override {
        if (epoll_ >= 0)
            close(epoll_);
    }

    void roundTrips(int times, std::size_t size) override {
        const std::array<char, largestMessage> message{};
        std::vector<int> left(entries_.size(), times);
        std::vector<std::size_t> got(entries_.size());
        for (const pollfd& entry : entries_)
            checked(write(entry.fd, message.data(), size));
        for (std::size_t open = entries_.size(); open > 0;) {
            await(10000);
            checked(static_cast<ssize_t>(ready_.size()));
            for (const std::size_t i : ready_) {
                got[i] += checked(read(entries_[i].fd, buffers_[i].data(), smallBuffer));
                if (got[i] < size)
                    continue;
                got[i] = 0;
                if (--left[i] == 0)
                    --open;
                else
                    checked(write(entries_[i].fd, message.data(), size));
            }
        }
    }

    void idle(int milliseconds) override { await(milliseconds); }

private:
    void await(int milliseconds) {
        ready_.clear();
        std::array<epoll_event, 64> events;
        const int count = epoll_ >= 0 ? epoll_wait(epoll_, events.data(), events.size(), milliseconds)
                                      : poll(entries_.data(), entries_.size(), milliseconds);
        for (std::size_t i = 0; epoll_ >= 0 && i < static_cast<std::size_t>(std::max(count, 0)); ++i)
            ready_.push_back(events[i].data.u64);
        for (std::size_t i = 0; epoll_ < 0 && i < entries_.size(); ++i)
            if (entries_[i].revents != 0)
                ready_.push_back(i);
    }

    std::vector<std::unique_ptr<Descriptor>> lines_;
    std::vector<pollfd> entries_;
    int epoll_ = -1; ///< in the place of a poll
    std::vector<std::size_t> ready_;
    std::vector<std::vector<char>> buffers_;
};

} // namespace

const Side rawSide{
    "raw", [](const std::string& path) -> std::unique_ptr<Line> { return std::make_unique<RawLine>(path); },
    [](const std::vector<std::string>& paths) -> std::unique_ptr<Lines> {
        return std::make_unique<RawLines>(paths, isOverNetwork(paths.front()));
    }};

} // namespace bench

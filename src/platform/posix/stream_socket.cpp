#include "platform/stream_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/name_lookup.h"
#include "platform/posix/brake.h"
#include "platform/posix/forked.h"
#include "platform/posix/gated_poll.h"

namespace brisolt::streams {

namespace {

void setOption(int32_t socket, int32_t level, int32_t option, int32_t value) noexcept {
    setsockopt(socket, level, option, &value, sizeof value);
}

/// Single bytes leave at once, urgent ones stay where they belong, and a far end that has vanished without a word
/// shows within a minute.
void setOptions(int32_t socket) noexcept {
    setOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
    setOption(socket, SOL_SOCKET, SO_OOBINLINE, 1);
    setOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
    setOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, 30);
    setOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, 10);
    setOption(socket, IPPROTO_TCP, TCP_KEEPCNT, 3);
}

/// Waits for the outcome of a connect. 0, or an error number.
int32_t awaitConnected(int32_t socket, const clock::Deadline& until) noexcept {
    for (;;) {
        pollfd self{socket, POLLOUT, 0};
        const int found = poll(&self, 1, until.realMillisecondsLeft());
        if (found < 0 && errno != EINTR)
            brake(-1);
        if (found > 0) {
            int32_t error = 0;
            socklen_t size = sizeof error;
            return getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
        }
        if (until.passed())
            return ETIMEDOUT;
    }
}

/// The socket, or a negative error number.
int32_t connectTo(const HostAddress& address, const clock::Deadline& until) noexcept {
    const int32_t socket = ::socket(address.family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (socket < 0)
        return -errno;
    const auto* to = reinterpret_cast<const sockaddr*>(address.bytes.data());
    int32_t error = ::connect(socket, to, address.size) == 0 ? 0 : errno;
    if (error == EINPROGRESS || error == EINTR)
        error = awaitConnected(socket, until);
    if (error != 0) {
        ::close(socket);
        return -error;
    }
    setOptions(socket);
    forked::closeInChild(socket);
    return socket;
}

/// An equal share of the time that is left for each address that is left, so that a silent one leaves some to the rest.
clock::Deadline shareOf(const clock::Deadline& until, std::size_t addressesLeft) noexcept {
    if (until.isNever())
        return until;
    const auto now = std::chrono::steady_clock::now();
    return clock::Deadline::at(now + (until.moment() - now) / static_cast<int64_t>(addressesLeft));
}

int32_t refusal(int32_t error) noexcept {
    return error == EAGAIN || error == EINTR ? 0 : -error;
}

uint32_t bitIf(bool condition, uint32_t bit) noexcept {
    return condition ? bit : 0;
}

} // namespace

int32_t connect(const std::string& host, const std::string& port, const clock::Deadline& until,
                std::string& error) {
    const std::vector<HostAddress> addresses = lookUpName(host, port, until, error);
    if (addresses.empty())
        return until.passed() ? -ETIMEDOUT : -EHOSTUNREACH;
    int32_t result = -ETIMEDOUT;
    error.clear();
    for (std::size_t i = 0; i < addresses.size(); ++i) {
        result = connectTo(addresses[i], shareOf(until, addresses.size() - i));
        if (result >= 0)
            return result;
        error += (error.empty() ? "" : "; ") + addresses[i].text + ": " + std::strerror(-result);
    }
    return result;
}

void close(int32_t socket) noexcept {
    // Bytes that nobody has read would make the host reset the connection and drop what is still to leave.
    constexpr int32_t most = 64;
    std::array<char, 4096> unread;
    shutdown(socket, SHUT_WR);
    for (int32_t i = 0; i < most && recv(socket, unread.data(), unread.size(), MSG_DONTWAIT) > 0; ++i) {
    }
    forked::forget(socket);
    ::close(socket);
}

int32_t read(int32_t socket, void* buffer, int32_t count) noexcept {
    const ssize_t got = recv(socket, buffer, static_cast<std::size_t>(count), MSG_DONTWAIT);
    if (got > 0)
        return static_cast<int32_t>(got);
    return got == 0 ? -EPIPE : refusal(errno);
}

int32_t write(int32_t socket, const void* buffer, int32_t count) noexcept {
    const ssize_t taken = send(socket, buffer, static_cast<std::size_t>(count), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (taken >= 0)
        return static_cast<int32_t>(taken);
    return errno == ENOBUFS || errno == ENOMEM ? 0 : refusal(errno);
}

int32_t bytesToRead(int32_t socket) noexcept {
    int32_t bytes = 0;
    return ioctl(socket, FIONREAD, &bytes) == 0 ? std::max(bytes, 0) : 0;
}

int32_t unconfirmed(int32_t socket) noexcept {
    int32_t bytes = 0;
    return ioctl(socket, SIOCOUTQ, &bytes) == 0 ? std::max(bytes, 0) : 0;
}

uint32_t wait(const Wait& what) noexcept {
    const bool gated = what.gate >= 0;
    const int16_t own =
        static_cast<int16_t>((what.forRead ? POLLRDHUP : 0) | (what.forRead && !gated ? POLLIN : 0) |
                             (what.forWrite ? POLLOUT : 0));
    std::array<pollfd, 4> set{{{what.socket, own, 0},
                               {what.signal, POLLIN, 0},
                               {what.forRead ? what.gate : -1, POLLIN, 0},
                               {what.permit, POLLIN, 0}}};
    const nfds_t count = what.permit >= 0 ? 4 : gated ? 3 : 2;
    if (gatedPoll({set.data(), count}, what.milliseconds) < 0) {
        if (errno == EINTR)
            return interrupted;
        brake(what.milliseconds);
        return 0;
    }
    const int16_t seen = set[0].revents;
    return bitIf((seen & POLLIN) != 0 || (gated && set[2].revents != 0), readable) |
           bitIf((seen & POLLOUT) != 0, writable) | bitIf(set[1].revents != 0, signalled) |
           bitIf((seen & (POLLRDHUP | POLLHUP | POLLERR | POLLNVAL)) != 0, broken);
}

Gate::~Gate() {
    if (heldBack_ >= 0)
        ::close(heldBack_);
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

bool Gate::open(int32_t socket) noexcept {
    socket_ = socket;
    descriptor_ = epoll_create1(EPOLL_CLOEXEC);
    heldBack_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (descriptor_ < 0 || heldBack_ < 0)
        return false;
    epoll_event event{};
    event.events = EPOLLIN;
    return epoll_ctl(descriptor_, EPOLL_CTL_ADD, socket_, &event) == 0 &&
           epoll_ctl(descriptor_, EPOLL_CTL_ADD, heldBack_, &event) == 0;
}

void Gate::showHeldBack(bool any) noexcept {
    eventfd_t count = 0;
    if (any)
        eventfd_write(heldBack_, 1);
    else
        eventfd_read(heldBack_, &count);
}

void Gate::watchRoom(bool on) noexcept {
    epoll_event event{};
    event.events = EPOLLIN | (on ? EPOLLOUT : 0U);
    epoll_ctl(descriptor_, EPOLL_CTL_MOD, socket_, &event);
}

} // namespace brisolt::streams

#include "network/far_end.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/descriptor_io.h"

namespace brisolt::test {

using namespace std::chrono_literals;

bool opens(const std::string& path) {
    const int32_t number = ComHostOpen(path.c_str(), 9600, nullptr);
    ComHostClose(number, 0);
    return number > 0;
}

ComHostLineState lineOf(int32_t port) {
    ComHostLineState state{};
    state.size = sizeof state;
    ComHostGetLine(port, &state);
    return state;
}

void Connection::say(const std::string& bytes, int flags) const {
    for (std::size_t done = 0; done < bytes.size();) {
        pollfd self{socket_, POLLOUT, 0};
        poll(&self, 1, -1);
        const ssize_t sent = send(socket_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL | flags);
        if (sent < 0 && errno != EAGAIN)
            return; // it has left
        done += static_cast<std::size_t>(std::max<ssize_t>(sent, 0));
    }
}

std::string Connection::hear(std::size_t count) const {
    return readFrom(socket_, count, 20s);
}

void Connection::close() {
    if (socket_ >= 0)
        ::close(std::exchange(socket_, -1));
}

void Connection::reset() {
    const linger atOnce{1, 0};
    setsockopt(socket_, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close();
}

Listener::Listener(int port) : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_port = htons(static_cast<uint16_t>(port));
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof own;
    auto* address = reinterpret_cast<sockaddr*>(&own);
    if (::bind(socket_, address, size) != 0 || listen(socket_, 8) != 0)
        throw std::runtime_error("cannot listen");
    getsockname(socket_, address, &size);
    port_ = ntohs(own.sin_port);
}

Connection Listener::accept() const {
    const int client = accept4(socket_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    const int yes = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return Connection(client);
}

void Listener::close() {
    if (socket_ < 0)
        return;
    shutdown(socket_, SHUT_RDWR); // whoever accepts comes back
    ::close(socket_.exchange(-1));
}

int freePort() {
    return Listener().port();
}

std::string comPort(int command, const std::string& value) {
    std::string text = {'\xff', '\xfa', 44, static_cast<char>(command)};
    for (char byte : value)
        text.append(byte == '\xff' ? 2 : 1, byte);
    return text + "\xff\xf0";
}

std::string rate(uint32_t baud) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(baud >> shift);
    return text;
}

RemoteServer::RemoteServer(Answer answer) : answer_(std::move(answer)), thread_([this] { serve(); }) {}

RemoteServer::~RemoteServer() {
    listener_.close();
    hangUp();
    thread_.join();
}

void RemoteServer::answerWith(Answer answer) {
    const std::scoped_lock guard(mutex_);
    answer_ = std::move(answer);
}

void RemoteServer::say(const std::string& bytes, int flags) {
    const std::scoped_lock guard(mutex_);
    client_->say(bytes, flags);
}

void RemoteServer::hangUp() {
    const std::scoped_lock guard(mutex_);
    if (client_)
        shutdown(client_->socket(), SHUT_RDWR);
}

std::string RemoteServer::asked() {
    const std::scoped_lock guard(mutex_);
    return std::exchange(asked_, {});
}

std::string RemoteServer::heard() {
    const std::scoped_lock guard(mutex_);
    return std::exchange(heard_, {});
}

void RemoteServer::serve() {
    for (;;) {
        Connection client = listener_.accept();
        const int socket = client.socket();
        if (socket < 0)
            return;
        {
            const std::scoped_lock guard(mutex_);
            client_.emplace(std::move(client));
            pending_.clear();
        }
        for (;;) {
            char bytes[4096];
            pollfd self{socket, POLLIN, 0};
            poll(&self, 1, -1);
            const ssize_t got = recv(socket, bytes, sizeof bytes, 0);
            if (got <= 0)
                break;
            take({bytes, static_cast<std::size_t>(got)});
        }
        const std::scoped_lock guard(mutex_);
        client_.reset();
    }
}

void RemoteServer::answer(const std::string& message) {
    uint32_t number = 0;
    for (std::size_t i = 1; i < message.size(); ++i)
        number = number << 8 | static_cast<uint8_t>(message[i]);
    asked_ += std::to_string(message[0]) + ":" + std::to_string(number) + " ";
    client_->say(answer_(message[0], message.substr(1)));
}

void RemoteServer::take(const std::string& bytes) {
    const std::scoped_lock guard(mutex_);
    pending_ += bytes;
    std::size_t at = 0;
    const auto next = [&](std::size_t i) {
        return at + i < pending_.size() ? static_cast<uint8_t>(pending_[at + i]) : -1;
    };
    enum { none = -1, se = 240, sb = 250, will = 251, iac = 255 };
    while (at < pending_.size()) {
        if (next(0) != iac || next(1) == iac) {
            heard_ += pending_[at];
            at += next(0) == iac ? 2 : 1;
        } else if (next(1) == sb) {
            std::string message;
            std::size_t end = 3; // behind the option
            for (; next(end + 1) != none && (next(end) != iac || next(end + 1) != se);
                 end += next(end) == iac ? 2 : 1)
                message += pending_[at + end];
            if (next(end + 1) == none)
                break;
            answer(message);
            at += end + 2;
        } else if (next(2) == none) {
            break;
        } else {
            asked_ += std::to_string(next(1)) + ":" + std::to_string(next(2)) + " ";
            if (next(1) == will && next(2) == 44)
                client_->say("\xff\xfd\x2c"); // it agrees
            at += 3;
        }
    }
    pending_.erase(0, at);
}

} // namespace brisolt::test

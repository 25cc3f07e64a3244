#include "network_end.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {
namespace {

sockaddr_in here(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void sendAtOnce(int socket) {
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

/// The length of the command that `text` begins with; 0: it is not whole yet.
std::size_t commandLength(const std::string& text) {
    const auto verb = text.size() < 2 ? 0 : static_cast<unsigned char>(text[1]);
    if (verb != 250)
        return verb == 0 ? 0 : verb < 251 || verb == 255 ? 2 : text.size() < 3 ? 0 : 3;
    const std::size_t end = text.find("\xff\xf0", 2);
    return end == std::string::npos ? 0 : end + 2;
}

/// Agrees to be a remote port, and to whatever it is asked for.
std::string answerTo(std::string command) {
    constexpr char fromServer = 100;
    if (command == "\xff\xfb\x2c")
        return "\xff\xfd\x2c";
    if (command.size() < 4 || command[2] != 0x2c)
        return "";
    command[3] = static_cast<char>(command[3] + fromServer);
    return command;
}

} // namespace

void Connections::await(int control) {
    for (bool called = false; !called;) {
        std::vector<pollfd> entries{{control, POLLIN, 0}, {listener_, POLLIN, 0}};
        for (const int socket : sockets_)
            entries.push_back({socket, POLLIN, 0});
        poll(entries.data(), entries.size(), -1);
        called = entries[0].revents != 0;
        for (std::size_t i = 2; i < entries.size(); ++i)
            if (entries[i].revents != 0)
                serve(entries[i].fd, called);
        if (entries[1].revents != 0)
            acceptAll();
    }
}

void Connections::acceptAll() {
    for (int socket = accept(listener_, nullptr, nullptr); socket >= 0;
         socket = accept(listener_, nullptr, nullptr)) {
        sendAtOnce(socket);
        sockets_.push_back(socket);
    }
}

/// With `look`, what has come belongs to the job that begins.
void Connections::serve(int socket, bool look) {
    std::array<char, 4096> bytes;
    const ssize_t got = recv(socket, bytes.data(), bytes.size(), look ? MSG_PEEK : 0);
    if (got > 0 && look)
        return;
    if (got > 0) {
        filter(socket, bytes.data(), static_cast<std::size_t>(got));
        return;
    }
    sockets_.erase(std::find(sockets_.begin(), sockets_.end(), socket));
    begun_.erase(socket);
    close(socket);
}

std::size_t Connections::filter(int socket, char* bytes, std::size_t count) {
    if (!remotePort_)
        return count;
    std::string& text = begun_[socket];
    if (text.empty() && std::memchr(bytes, 255, count) == nullptr)
        return count;
    text.append(bytes, count);
    std::size_t kept = 0;
    for (std::size_t at = text.find('\xff'); !text.empty(); at = text.find('\xff')) {
        kept += text.copy(bytes + kept, at);
        text.erase(0, at);
        const std::size_t length = commandLength(text);
        if (length == 0)
            break;
        const std::string answer = answerTo(text.substr(0, length));
        if (send(socket, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
            _exit(1);
        text.erase(0, length);
    }
    return kept;
}

int listenForLines(int& number) {
    constexpr int waiting = 512;
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_in address = here(0);
    socklen_t size = sizeof address;
    auto* own = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, own, size) != 0 || listen(listener, waiting) != 0 ||
        getsockname(listener, own, &size) != 0)
        throw std::system_error(errno, std::generic_category(), "listener");
    number = ntohs(address.sin_port);
    return listener;
}

int connectTo(const std::string& path) {
    const sockaddr_in address = here(std::atoi(path.c_str() + path.rfind(':') + 1));
    const int line = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(line, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    sendAtOnce(line);
    fcntl(line, F_SETFL, O_NONBLOCK);
    return line;
}

} // namespace bench

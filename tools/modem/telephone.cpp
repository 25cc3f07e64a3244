#include "telephone.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "host_failure.h"

namespace simulated {

namespace {

sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

/// What one end has sent is soon at the other or holds the sender off, as on a telephone line; a host would
/// keep megabytes. Less than two of the loopback's large segments would make it stutter.
void keepLittle(const Descriptor& socket) {
    const int bytes = 131072;
    setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

/// A connection to a modem; none when nobody listens there. On the loopback address it is made or refused at
/// once, but for a process that hangs and takes no callers.
Descriptor connectTo(uint16_t port) {
    Descriptor made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!made)
        failHost("telephone line");
    keepLittle(made);
    const timeval patience{1, 0};
    setsockopt(made.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    const sockaddr_in address = loopback(port);
    if (connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        fcntl(made.get(), F_SETFL, O_NONBLOCK) != 0)
        made.close();
    return made;
}

/// Keys come one by one, and each is to be there at once.
void sendAtOnce(const Descriptor& socket) {
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void sendLine(const Descriptor& socket, const std::string& line) {
    // A few bytes into a fresh connection always have room.
    static_cast<void>(::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL));
}

bool wouldBlock() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

/// The number behind a word and a blank.
int numberIn(const std::string& line) {
    const std::size_t blank = line.find(' ');
    return blank == std::string::npos ? 0 : std::atoi(line.c_str() + blank);
}

} // namespace

Telephone::Telephone(Exchange& exchange, std::string number)
    : exchange_(exchange), number_(std::move(number)),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    keepLittle(listener_); // whom it accepts is like it
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (!listener_ || bind(listener_.get(), generic, size) != 0 || listen(listener_.get(), 16) != 0 ||
        getsockname(listener_.get(), generic, &size) != 0)
        failHost("telephone line");
    if (!number_.empty())
        exchange_.enlist(number_, ntohs(address.sin_port));
}

Telephone::~Telephone() {
    if (!number_.empty())
        exchange_.leave(number_);
    hangUp();
}

// ---- Placing, taking and ending calls ------------------------------------------------------------------

void Telephone::dial(const std::string& number) {
    hangUp();
    other_ = number;
    const Exchange::Route route = exchange_.find(number);
    switch (route.fate) {
    case Fate::busy: call_ = Call::busy; return;
    case Fate::ringsForEver: call_ = Call::ringing; return;
    case Fate::nobody:
    case Fate::noDialtone: call_ = Call::refused; return;
    case Fate::modem: break;
    }
    socket_ = connectTo(route.port);
    call_ = socket_ ? Call::calling : Call::refused;
    if (socket_) {
        sendAtOnce(socket_);
        say("CALL " + number_);
    }
}

void Telephone::wantData(int rate) {
    wantedRate_ = rate;
    offerCarrier();
}

void Telephone::offerCarrier() {
    if (call_ != Call::pickedUp || wantedRate_ == 0)
        return;
    rate_ = std::min(wantedRate_, otherRate_);
    say("CARRIER " + std::to_string(rate_));
    if (call_ == Call::pickedUp)
        call_ = Call::connected;
}

void Telephone::answer(int rate) {
    if (call_ != Call::incoming)
        return;
    call_ = Call::answered;
    say("ANSWER " + std::to_string(rate));
}

void Telephone::hangUp() {
    cut();
    call_ = Call::none;
    other_.clear();
    wantedRate_ = 0;
}

void Telephone::cut() {
    // A socket that is closed with bytes unread takes back what it has just sent.
    if (socket_)
        shutdown(socket_.get(), SHUT_WR);
    std::array<char, 4096> bytes{};
    while (socket_ && recv(socket_.get(), bytes.data(), bytes.size(), 0) > 0) {
    }
    socket_.close();
    heard_.clear();
    if (call_ != Call::none)
        call_ = Call::lost;
}

// ---- What is said before the bytes ---------------------------------------------------------------------

void Telephone::turn(bool engaged) {
    acceptCallers(engaged);
    std::string line;
    while (call_ != Call::connected && call_ != Call::lost && socket_ && hear(line))
        obey(line);
}

void Telephone::acceptCallers(bool engaged) {
    // Asked first, since an accept wants a descriptor also when nobody is at the door.
    for (pollfd door{listener_.get(), POLLIN, 0}; poll(&door, 1, 0) > 0;) {
        Descriptor caller(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!caller) {
            // Whoever is not let in stays there, and a wait for the next caller would end at once.
            if (!wouldBlock() && errno != ECONNABORTED)
                failHost("telephone line");
            return;
        }
        if (engaged || call_ != Call::none || socket_) {
            sendLine(caller, "BUSY\n");
            shutdown(caller.get(), SHUT_WR);
            continue;
        }
        sendAtOnce(caller);
        socket_ = std::move(caller);
    }
}

void Telephone::say(const std::string& line) {
    sendLine(socket_, line + "\n");
}

/// Takes a line if it is there. Byte by byte, since what follows may be the program's already.
bool Telephone::hear(std::string& line) {
    for (;;) {
        char byte = 0;
        const ssize_t count = recv(socket_.get(), &byte, 1, 0);
        if (count < 0 && wouldBlock())
            return false;
        if (count <= 0) {
            const bool ours = call_ == Call::calling || call_ == Call::ringing;
            const bool over = call_ == Call::none || call_ == Call::incoming;
            cut();
            call_ = over ? Call::none : ours ? Call::refused : Call::lost;
            return false;
        }
        if (byte == '\n') {
            line = std::exchange(heard_, {});
            return true;
        }
        constexpr std::size_t longest = 100;
        if (heard_.size() < longest)
            heard_ += byte;
    }
}

void Telephone::obey(const std::string& line) {
    if (call_ == Call::none && line.starts_with("CALL")) {
        other_ = Exchange::digits(line.substr(4));
        call_ = Call::incoming;
        say("RING");
    } else if (call_ == Call::calling && line == "RING") {
        call_ = Call::ringing;
    } else if (call_ == Call::calling && line == "BUSY") {
        cut();
        call_ = Call::busy;
    } else if (call_ == Call::ringing && line.starts_with("ANSWER")) {
        otherRate_ = numberIn(line);
        call_ = Call::pickedUp;
        offerCarrier();
    } else if (call_ == Call::answered && line.starts_with("CARRIER")) {
        rate_ = numberIn(line);
        call_ = Call::connected;
    } else {
        // Not a modem of ours.
        cut();
        call_ = call_ == Call::none ? Call::none : Call::lost;
    }
}

// ---- Bytes -----------------------------------------------------------------------------------------------

std::size_t Telephone::send(std::string_view bytes) {
    if (call_ != Call::connected)
        return bytes.size();
    const ssize_t count = ::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count >= 0)
        return static_cast<std::size_t>(count);
    // A line that has gone is noticed by who listens to it.
    return wouldBlock() ? 0 : bytes.size();
}

std::string Telephone::receive(std::size_t most) {
    if (call_ != Call::connected || most == 0)
        return {};
    std::string bytes(most, '\0');
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count == 0 || (count < 0 && !wouldBlock()))
        cut();
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
}

void Telephone::noticeLoss() {
    pollfd entry{socket_.get(), POLLRDHUP, 0};
    if (call_ == Call::connected && poll(&entry, 1, 0) > 0 && entry.revents != 0)
        cut();
}

void Telephone::watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom, bool forLoss) const {
    entries.push_back({listener_.get(), POLLIN, 0});
    const bool talking = call_ == Call::connected;
    const int wanted = (forBytes || !talking ? POLLIN : 0) | (forRoom && talking ? POLLOUT : 0) |
                       (forLoss && talking ? POLLRDHUP : 0);
    // A connection that has gone says so whatever is asked, again and again.
    entries.push_back({wanted == 0 ? -1 : socket_.get(), static_cast<short>(wanted), 0});
}

} // namespace simulated

// The far end of a network line, in the test itself: a socket that does what the test says, and a remote serial port
// that answers as the test says, the truth or not.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "brisolt_host.h"

namespace brisolt::test {

/// Whether a line can be opened by now, and so whether a program that was started is ready.
bool opens(const std::string& path);
ComHostLineState lineOf(int32_t port);

/// A connection that was accepted.
class Connection {
public:
    explicit Connection(int socket) : socket_(socket) {}
    Connection(Connection&& other) noexcept : socket_(std::exchange(other.socket_, -1)) {}
    Connection& operator=(Connection&&) = delete;
    ~Connection() { close(); }
    int socket() const { return socket_; }
    void say(const std::string& bytes, int flags = 0) const;
    std::string hear(std::size_t count) const;
    void close();
    void reset(); ///< without a goodbye

private:
    int socket_;
};

class Listener {
public:
    explicit Listener(int port = 0);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() { close(); }
    int port() const { return port_; }
    std::string path(const std::string& options = "") const {
        return "tcp:127.0.0.1:" + std::to_string(port_) + options;
    }
    Connection accept() const;
    void close();

private:
    std::atomic<int> socket_{-1}; ///< a close ends the accept of another thread
    int port_ = 0;
};

/// A port that nothing listens on, for programs that are told theirs.
int freePort();

/// A message of the com-port option in its frame.
std::string comPort(int command, const std::string& value);
std::string rate(uint32_t baud); ///< as a value

class RemoteServer {
public:
    /// What is sent for a request.
    using Answer = std::function<std::string(int command, const std::string& value)>;
    explicit RemoteServer(Answer answer = truth);
    ~RemoteServer();
    RemoteServer(const RemoteServer&) = delete;
    RemoteServer& operator=(const RemoteServer&) = delete;

    static std::string truth(int command, const std::string& value) { return comPort(command + 100, value); }
    static std::string silence(int, const std::string&) { return {}; }
    void answerWith(Answer answer);
    void say(const std::string& bytes, int flags = 0);
    void hangUp();
    /// The requests since the last time, "1:9600 5:8 ...", and what telnet agrees on and refuses, "251:44 254:1 ...".
    std::string asked();
    std::string heard(); ///< data since the last time
    std::string path(const std::string& options = "") const {
        return "rfc2217:127.0.0.1:" + std::to_string(listener_.port()) + options;
    }

private:
    void serve();
    void take(const std::string& bytes);
    void answer(const std::string& message);

    Listener listener_;
    std::mutex mutex_; ///< what follows
    Answer answer_;
    std::optional<Connection> client_;
    std::string asked_, heard_, pending_;
    std::thread thread_;
};

} // namespace brisolt::test

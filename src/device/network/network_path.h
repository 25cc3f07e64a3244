// Paths that lead to another machine: "tcp:HOST:PORT?KEY=VALUE&KEY=VALUE" and its like.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brisolt::network {

/// What paths of one scheme lead to.
struct Kind {
    std::string_view scheme; ///< with its colon
    bool telnet;             ///< a remote serial port: telnet with the com-port option
    bool tls;
    /// Bytes may be taken off the socket before a reader asks for them.
    bool holdsBack() const noexcept { return telnet || tls; }
};

struct Path {
    std::string whole; ///< as it was given, for people
    std::string host, port;
    uint32_t connectMs = 5000; ///< for everything up to a connection
    uint32_t answerMs = 2000;  ///< for the answer to one request
    std::string ca, cert, key; ///< files; "" the system's store, none
    std::string name;          ///< what the certificate must bear
    bool verify = true;
};

/// False: `error` says what is wrong and what is possible.
bool readPath(const Kind& kind, std::string_view text, Path& path, std::string& error);

} // namespace brisolt::network

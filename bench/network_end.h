// The far end of lines over a network: its connections, which come and go, and what a remote serial port answers.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace bench {

class Connections {
public:
    /// `listener` is taken over. A remote port is spoken to in telnet.
    Connections(int listener, bool remotePort) : listener_(listener), remotePort_(remotePort) {}

    /// Until `control` has something to say: connections come and go, and questions are answered.
    void await(int control);
    const std::vector<int>& sockets() const { return sockets_; }
    /// Takes what is meant for a remote port itself out of what came. Bytes left.
    std::size_t filter(int socket, char* bytes, std::size_t count);

private:
    void acceptAll();
    void serve(int socket, bool look);

    int listener_;
    bool remotePort_;
    std::vector<int> sockets_;
    std::map<int, std::string> begun_; ///< commands that have not come whole
};

/// A port of this machine that listens; `number` is that of the port.
int listenForLines(int& number);
/// To the port whose number stands at the end of the path.
int connectTo(const std::string& path);
inline bool isOverNetwork(const std::string& path) {
    return path.find(':') != std::string::npos;
}

} // namespace bench

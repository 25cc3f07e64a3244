// Which device a port's name opens: the table of mapped paths and the host's own devices behind it.
#include <array>
#include <mutex>

#include "device/device.h"
#include "platform/serial.h"

namespace brisolt::deviceNames {
namespace {

constexpr int32_t portLimit = 256;
constexpr std::size_t pathLimit = 260; // with its final zero

struct Mapping {
    std::mutex lock;
    std::array<std::string, portLimit + 1> paths; // by port number; empty: the default
};

Mapping& mapping() {
    static Mapping& instance = *new Mapping;
    return instance;
}

bool startsWithCom(std::string_view name) {
    return name.size() >= 3 && (name[0] | 0x20) == 'c' && (name[1] | 0x20) == 'o' && (name[2] | 0x20) == 'm';
}

/// The port that a name stands for, 0 when it is not a port's name.
int32_t portOfName(std::string_view name) {
    constexpr std::string_view devicePrefix = "\\\\.\\";
    if (name.substr(0, devicePrefix.size()) == devicePrefix)
        name.remove_prefix(devicePrefix.size());
    if (!startsWithCom(name))
        return 0;
    name.remove_prefix(3);
    if (name.empty() || name.size() > 3 || name[0] == '0')
        return 0;
    int32_t port = 0;
    for (const char digit : name) {
        if (digit < '0' || digit > '9')
            return 0;
        port = port * 10 + (digit - '0');
    }
    return port <= portLimit ? port : 0;
}

} // namespace

int32_t map(int32_t port, const char* path) noexcept try {
    if (port < 1 || port > portLimit)
        return -1;
    const std::string_view wanted = path != nullptr ? std::string_view(path) : std::string_view();
    if (wanted.size() >= pathLimit)
        return -1;
    std::string mapped(wanted);
    Mapping& all = mapping();
    const std::scoped_lock guard(all.lock);
    all.paths[static_cast<std::size_t>(port)] = std::move(mapped);
    return 1;
} catch (...) {
    return -1;
}

std::string resolve(std::string_view name) {
    const int32_t port = portOfName(name);
    if (port == 0)
        return std::string(name);
    {
        Mapping& all = mapping();
        const std::scoped_lock guard(all.lock);
        const std::string& mapped = all.paths[static_cast<std::size_t>(port)];
        if (!mapped.empty())
            return mapped;
    }
    return serial::defaultPath(port);
}

} // namespace brisolt::deviceNames

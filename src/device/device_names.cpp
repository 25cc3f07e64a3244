// Which device a port's name opens: the table of mapped paths and the host's own devices behind it.
#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <utility>

#include "device/device.h"
#include "platform/forked.h"
#include "platform/mutex.h"
#include "platform/serial.h"

namespace brisolt::deviceNames {
namespace {

constexpr int32_t portLimit = 256;
constexpr std::size_t pathLimit = 260; // with its final zero

struct Mapped {
    const std::string* path = nullptr; // null: the default
    bool opened = false;               // by an open, not by the program
};

// Neither made on first use nor ever gone: a thread may open a port while the program starts or ends.
constinit Mutex lock;
constinit std::array<Mapped, portLimit + 1> ports GUARDED_BY(lock){}; // by number

bool startsWithCom(std::string_view name) {
    return name.size() >= 3 && (name[0] | 0x20) == 'c' && (name[1] | 0x20) == 'o' && (name[2] | 0x20) == 'm';
}

/// The names that the parent's opens gave are its own.
void beginAnew() noexcept LOCKS_UNCHECKED {
    lock.beginAnew();
    for (Mapped& place : ports)
        if (place.opened)
            place = {};
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

int32_t set(int32_t port, const char* path, bool opened) {
    if (port < 1 || port > portLimit)
        return -1;
    const std::string_view wanted = path != nullptr ? std::string_view(path) : std::string_view();
    if (wanted.size() >= pathLimit)
        return -1;
    std::unique_ptr<const std::string> mapped;
    if (!wanted.empty())
        mapped = std::make_unique<const std::string>(wanted);
    forked::beginAnewInChild(beginAnew);
    const MutexLock guard(lock);
    Mapped& place = ports[static_cast<std::size_t>(port)];
    mapped.reset(std::exchange(place.path, mapped.release()));
    place.opened = opened;
    return 1;
}

} // namespace

int32_t map(int32_t port, const char* path) noexcept try {
    return set(port, path, false);
} catch (const std::bad_alloc&) {
    return -1;
}

bool mapOpened(int32_t port, const char* path) {
    return set(port, path, true) > 0;
}

bool isMapped(int32_t port) noexcept {
    forked::beginAnewInChild(beginAnew);
    const MutexLock guard(lock);
    const Mapped& mapped = ports[static_cast<std::size_t>(port)];
    return mapped.path != nullptr && !mapped.opened;
}

void endOpened(int32_t port) noexcept {
    const MutexLock guard(lock);
    if (Mapped& mapped = ports[static_cast<std::size_t>(port)]; mapped.opened) {
        delete mapped.path;
        mapped = {};
    }
}

namespace {

std::string pathOf(int32_t port) {
    {
        const MutexLock guard(lock);
        const std::string* mapped = ports[static_cast<std::size_t>(port)].path;
        if (mapped != nullptr)
            return *mapped;
    }
    return serial::defaultPath(port);
}

} // namespace

std::string resolve(std::string_view name) {
    const std::size_t mark = std::min(name.find('?'), name.size());
    const int32_t port = portOfName(name.substr(0, mark));
    if (port == 0)
        return std::string(name);
    std::string path = pathOf(port);
    if (mark + 1 >= name.size())
        return path;
    const bool hasOptions = path.find('?') != std::string::npos;
    if (!hasOptions || (path.back() != '?' && path.back() != '&'))
        path += hasOptions ? '&' : '?';
    return path.append(name.substr(mark + 1));
}

} // namespace brisolt::deviceNames

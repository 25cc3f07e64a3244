// The registry of device drivers: schemes of device paths and the drivers behind them.
#include "device/driver_registry.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "device/device.h"
#include "platform/error_text.h"
#include "platform/forked.h"
#include "platform/mutex.h"
#include "platform/serial.h"

namespace brisolt::drivers {
namespace {

constexpr std::size_t shortestScheme = 2;
constexpr std::size_t longestScheme = 31;
// The record may grow at its end; a caller that was built with the first one stays welcome.
constexpr std::size_t firstReleaseSize = offsetof(ComHostDriver, counters);

using Scheme = std::array<char, longestScheme + 1>; // in lower case, all zeros: none

/// The scheme that a text is.
Scheme schemeOf(std::string_view text) noexcept {
    Scheme scheme{};
    if (text.size() < shortestScheme || text.size() > longestScheme)
        return scheme;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte >= 0x80 || (std::isalnum(byte) == 0 && byte != '-'))
            return {};
        scheme[i] = static_cast<char>(std::tolower(byte));
    }
    return scheme;
}

/// The scheme that a path begins with.
Scheme schemeOfPath(std::string_view path) noexcept {
    const std::size_t colon = path.find(':');
    return colon == std::string_view::npos ? Scheme{} : schemeOf(path.substr(0, colon));
}

using OpenWithOptions = int32_t (*)(const char* path, const DeviceOptions& options, void** device,
                                    int32_t* handle) noexcept;

struct BuiltIn {
    std::string_view scheme;
    const ComHostDriver& (*driver)() noexcept;
    bool network;
    OpenWithOptions open = nullptr; ///< where the lines can be as asked from the first moment on
};
constexpr BuiltIn builtIns[] = {{"null-modem", nullModem, false, openNullModem},
                                {"loop", loop, false, openLoop},
                                {"tcp", tcp, true},
                                {"rfc2217", remotePort, true},
                                {"tls", tls, true},
                                {"rfc2217-tls", remotePortTls, true}};

const BuiltIn* findBuiltIn(const Scheme& scheme) noexcept {
    const auto* found =
        std::find_if(std::begin(builtIns), std::end(builtIns),
                     [&scheme](const BuiltIn& entry) { return entry.scheme == scheme.data(); });
    return found == std::end(builtIns) ? nullptr : found;
}

struct Registration {
    Scheme scheme{};
    ComHostDriver driver{};
    Registration* next = nullptr;
};

// Registrations are replaced and added at the end, never taken out. Neither made on first use nor ever gone: a
// port may still be closing on a thread of its own while the process ends.
constinit Mutex lock;
constinit Registration* registrations GUARDED_BY(lock) = nullptr;

void beginAnew() noexcept {
    lock.beginAnew();
}

/// Where the scheme's registration stands in the list, or null stands at its end.
Registration*& find(const Scheme& scheme) noexcept WITH_LOCK(lock) {
    Registration** place = &registrations;
    while (*place != nullptr && (*place)->scheme != scheme)
        place = &(*place)->next;
    return *place;
}

bool usable(const ComHostDriver* driver) {
    return driver != nullptr && driver->size >= firstReleaseSize && driver->open != nullptr &&
           driver->close != nullptr && driver->read != nullptr && driver->write != nullptr;
}

} // namespace

int32_t registerDriver(const char* scheme, const ComHostDriver* driver) noexcept {
    forked::beginAnewInChild(beginAnew);
    if (scheme == nullptr || !usable(driver))
        return -1;
    const Scheme name = schemeOf(scheme);
    if (name[0] == 0 || findBuiltIn(name) != nullptr || std::string_view(name.data()) == "usb")
        return -1;
    ComHostDriver added{};
    std::memcpy(&added, driver, std::min<std::size_t>(driver->size, sizeof added));
    added.size = sizeof added;

    const MutexLock guard(lock);
    Registration*& place = find(name);
    if (place == nullptr)
        place = new (std::nothrow) Registration{.scheme = name};
    if (place == nullptr)
        return -1;
    place->driver = added;
    return 1;
}

ComHostDriver forPath(std::string_view path) noexcept {
    const Scheme scheme = schemeOfPath(path);
    if (scheme[0] == 0)
        return serial::ttyDriver();
    if (const BuiltIn* builtIn = findBuiltIn(scheme))
        return builtIn->driver();
    const MutexLock guard(lock);
    const Registration* registration = find(scheme);
    return registration != nullptr ? registration->driver : serial::ttyDriver();
}

bool adoptForeign(int32_t handle, ComHostDriver& driver, void*& self) noexcept {
    for (const Registration* at = nullptr;;) {
        {
            const MutexLock guard(lock);
            at = at == nullptr ? registrations : at->next;
            if (at == nullptr)
                return false;
            driver = at->driver;
        }
        if (driver.adopt != nullptr && driver.adopt(driver.context, handle, &self) > 0 && self != nullptr)
            return true;
    }
}

bool isBuiltIn(std::string_view path) noexcept {
    return findBuiltIn(schemeOfPath(path)) != nullptr;
}

bool hasDriver(std::string_view path) noexcept {
    forked::beginAnewInChild(beginAnew);
    const Scheme scheme = schemeOfPath(path);
    if (scheme[0] == 0)
        return false;
    if (findBuiltIn(scheme) != nullptr)
        return true;
    const MutexLock guard(lock);
    return find(scheme) != nullptr;
}

bool isNetworkPath(std::string_view path) noexcept {
    const BuiltIn* builtIn = findBuiltIn(schemeOfPath(path));
    return builtIn != nullptr && builtIn->network;
}

int32_t openDriver(const std::string& path, const DeviceOptions& options, Opened& opened) noexcept {
    opened.driver = forPath(path);
    const BuiltIn* builtIn = findBuiltIn(schemeOfPath(path));
    const int32_t result =
        builtIn != nullptr && builtIn->open != nullptr
            ? builtIn->open(path.c_str(), options, &opened.self, &opened.handle)
            : opened.driver.open(opened.driver.context, path.c_str(), &opened.self, &opened.handle);
    if (result > 0 && opened.self != nullptr)
        return 1;
    opened.self = nullptr;
    const int32_t error = result < 0 && result != INT32_MIN ? result : -EIO;
    // Drivers from outside may say nothing about a failure; the built-in ones say more in their turn, unless
    // they have no memory to.
    const bool toldItself = opened.driver.open == serial::ttyDriver().open || builtIn != nullptr;
    if (!toldItself || error == -ENOMEM)
        setErrorTextFrom({"cannot open ", path, ": ", std::strerror(-error)});
    return error;
}

} // namespace brisolt::drivers

// The registry of device drivers: schemes of device paths and the drivers behind them.
#include "device/driver_registry.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

#include "device/device.h"
#include "platform/error_text.h"
#include "platform/serial.h"

namespace brisolt::drivers {
namespace {

constexpr std::size_t shortestScheme = 2;
constexpr std::size_t longestScheme = 31;
constexpr std::string_view nullModemScheme = "null-modem";
// The record may grow at its end; a caller that was built with the first one stays welcome.
constexpr std::size_t firstReleaseSize = sizeof(ComHostDriver);

struct Registration {
    std::string scheme;
    ComHostDriver driver;
};

struct Registry {
    std::mutex lock;
    std::vector<Registration> registrations;

    Registration* find(std::string_view scheme) {
        const auto found = std::find_if(registrations.begin(), registrations.end(),
                                        [&](const Registration& entry) { return entry.scheme == scheme; });
        return found == registrations.end() ? nullptr : &*found;
    }
};

// Never destroyed: a port may still be closing on a thread of its own while the process ends.
Registry& registry() {
    static Registry& instance = *new Registry;
    return instance;
}

/// The scheme in lower case, empty when the text is none.
std::string schemeOf(std::string_view text) {
    if (text.size() < shortestScheme || text.size() > longestScheme)
        return {};
    std::string scheme;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x80 || (std::isalnum(byte) == 0 && character != '-'))
            return {};
        scheme += static_cast<char>(std::tolower(byte));
    }
    return scheme;
}

bool usable(const ComHostDriver* driver) {
    return driver != nullptr && driver->size >= firstReleaseSize && driver->open != nullptr &&
           driver->close != nullptr && driver->read != nullptr && driver->write != nullptr;
}

} // namespace

int32_t registerDriver(const char* scheme, const ComHostDriver* driver) noexcept try {
    if (scheme == nullptr || !usable(driver))
        return -1;
    Registration added{schemeOf(scheme), {}};
    if (added.scheme.empty() || added.scheme == nullModemScheme)
        return -1;
    const std::size_t known = std::min<std::size_t>(driver->size, sizeof added.driver);
    std::memcpy(&added.driver, driver, known);
    added.driver.size = sizeof added.driver;

    Registry& all = registry();
    const std::scoped_lock guard(all.lock);
    if (Registration* existing = all.find(added.scheme))
        *existing = std::move(added);
    else
        all.registrations.push_back(std::move(added));
    return 1;
} catch (...) {
    return -1;
}

ComHostDriver forPath(const std::string& path) {
    const std::size_t colon = path.find(':');
    const std::string scheme = colon == std::string::npos ? std::string() : schemeOf(path.substr(0, colon));
    if (scheme.empty())
        return serial::ttyDriver();
    if (scheme == nullModemScheme)
        return nullModem();
    Registry& all = registry();
    const std::scoped_lock guard(all.lock);
    const Registration* registration = all.find(scheme);
    return registration != nullptr ? registration->driver : serial::ttyDriver();
}

bool adoptForeign(int32_t handle, ComHostDriver& driver, void*& self) {
    std::vector<Registration> offered;
    {
        Registry& all = registry();
        const std::scoped_lock guard(all.lock);
        offered = all.registrations;
    }
    for (const Registration& registration : offered) {
        const ComHostDriver& candidate = registration.driver;
        if (candidate.adopt == nullptr || candidate.adopt(candidate.context, handle, &self) <= 0 ||
            self == nullptr)
            continue;
        driver = candidate;
        return true;
    }
    return false;
}

int32_t openPath(const std::string& path, Opened& opened) {
    opened.driver = forPath(path);
    // Drivers from outside may say nothing about a failure; the built-in ones say more in their turn.
    const bool tellsItself =
        opened.driver.open == serial::ttyDriver().open || opened.driver.open == nullModem().open;
    const int32_t result =
        opened.driver.open(opened.driver.context, path.c_str(), &opened.self, &opened.handle);
    if (result > 0 && opened.self != nullptr)
        return 1;
    opened.self = nullptr;
    const int32_t error = result < 0 ? result : -EIO;
    if (!tellsItself)
        setErrorText("cannot open " + path + ": " + std::strerror(-error));
    return error;
}

} // namespace brisolt::drivers

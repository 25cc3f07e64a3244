// The handles that ComHostOpenDevice hands out: who uses each of them, and when its device ends.
#include <cerrno>
#include <map>
#include <mutex>

#include "device/device.h"
#include "device/driver_registry.h"
#include "platform/error_text.h"

namespace brisolt::drivers {
namespace {

struct KeptDevice {
    Opened opened;
    bool inUse = false;  ///< a port works on it
    bool closed = false; ///< the program has closed the handle; the port that uses it ends the device
};

struct Handles {
    std::mutex lock;
    std::map<int32_t, KeptDevice> devices;
};

Handles& handles() {
    static Handles& instance = *new Handles;
    return instance;
}

/// Takes the device out of the table when nothing needs it any more; its end then comes outside the lock,
/// since a driver may take its time over it.
bool removeIfUnused(Handles& all, std::map<int32_t, KeptDevice>::iterator entry, Opened& ending) {
    if (!entry->second.closed || entry->second.inUse)
        return false;
    ending = entry->second.opened;
    all.devices.erase(entry);
    return true;
}

} // namespace

int32_t openHandle(const char* path) noexcept try {
    if (path == nullptr || *path == 0) {
        setErrorText("cannot open a device: no path given");
        return -1;
    }
    KeptDevice device;
    const std::string resolved = deviceNames::resolve(path);
    if (openPath(resolved, device.opened) < 0)
        return -1;
    Handles& all = handles();
    bool kept = false;
    {
        const std::scoped_lock guard(all.lock);
        kept = device.opened.handle >= 0 && all.devices.emplace(device.opened.handle, device).second;
    }
    if (kept)
        return device.opened.handle;
    // Two devices under one number could not be told apart when a port adopts it.
    device.opened.driver.close(device.opened.self);
    setErrorText("cannot open " + resolved + ": its driver gave the handle " +
                 std::to_string(device.opened.handle) + ", which cannot be used");
    return -1;
} catch (...) {
    return -1;
}

int32_t closeHandle(int32_t handle) noexcept {
    Handles& all = handles();
    Opened ending;
    {
        const std::scoped_lock guard(all.lock);
        const auto entry = all.devices.find(handle);
        if (entry == all.devices.end() || entry->second.closed)
            return -1;
        entry->second.closed = true;
        if (!removeIfUnused(all, entry, ending))
            return 1;
    }
    ending.driver.close(ending.self);
    return 1;
}

Kept takeHandle(int32_t handle, Opened& opened) {
    Handles& all = handles();
    const std::scoped_lock guard(all.lock);
    const auto entry = all.devices.find(handle);
    if (entry == all.devices.end())
        return Kept::unknown;
    if (entry->second.closed)
        return Kept::closed;
    if (entry->second.inUse)
        return Kept::busy;
    entry->second.inUse = true;
    opened = entry->second.opened;
    return Kept::taken;
}

void releaseHandle(int32_t handle) noexcept {
    Handles& all = handles();
    Opened ending;
    {
        const std::scoped_lock guard(all.lock);
        const auto entry = all.devices.find(handle);
        if (entry == all.devices.end())
            return;
        entry->second.inUse = false;
        if (!removeIfUnused(all, entry, ending))
            return;
    }
    ending.driver.close(ending.self);
}

} // namespace brisolt::drivers

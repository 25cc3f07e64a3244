// The handles that ComHostOpenDevice hands out: who uses each of them, and when its device ends.
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "device/device.h"
#include "device/driver_registry.h"
#include "platform/error_text.h"
#include "platform/forked.h"
#include "platform/mutex.h"

namespace brisolt::drivers {
namespace {

struct KeptDevice {
    Opened opened;
    bool inUse = false;  ///< a port works on it
    bool closed = false; ///< the program has closed the handle; the port that uses it ends the device
    KeptDevice* next = nullptr;
};

// Neither made on first use nor ever gone: a port may still be closing while the program ends.
constinit Mutex lock;
constinit KeptDevice* devices GUARDED_BY(lock) = nullptr;

/// Where the handle's device stands in the list, or null stands at its end.
KeptDevice*& find(int32_t handle) noexcept WITH_LOCK(lock) {
    KeptDevice** place = &devices;
    while (*place != nullptr && (*place)->opened.handle != handle)
        place = &(*place)->next;
    return *place;
}

/// Takes the device out of the list when nothing needs it any more; its end then comes outside the lock,
/// since a driver may take its time over it.
std::unique_ptr<KeptDevice> removeIfUnused(KeptDevice*& place) noexcept WITH_LOCK(lock) {
    if (!place->closed || place->inUse)
        return nullptr;
    std::unique_ptr<KeptDevice> ending(place);
    place = ending->next;
    return ending;
}

void end(const Opened& opened) noexcept {
    opened.driver.close(opened.self);
}

/// False when a device with its handle is there already, or it has none.
bool keep(std::unique_ptr<KeptDevice>& device) noexcept {
    const MutexLock guard(lock);
    KeptDevice*& place = find(device->opened.handle);
    if (device->opened.handle < 0 || place != nullptr)
        return false;
    place = device.release();
    return true;
}

void beginAnew() noexcept LOCKS_UNCHECKED {
    lock.beginAnew();
    devices = nullptr;
}

} // namespace

int32_t openHandle(const char* path) noexcept try {
    forked::beginAnewInChild(beginAnew);
    if (path == nullptr || *path == 0) {
        setErrorTextFrom({"cannot open a device: no path given"});
        return -1;
    }
    auto device = std::make_unique<KeptDevice>();
    const std::string resolved = deviceNames::resolve(path);
    if (openPath(resolved, device->opened.options, device->opened) < 0)
        return -1;
    const int32_t handle = device->opened.handle;
    if (keep(device))
        return handle;
    // Two devices under one number could not be told apart when a port adopts it.
    end(device->opened);
    setErrorTextFrom({"cannot open ", resolved, ": its driver gave the handle ", std::to_string(handle),
                      ", which cannot be used"});
    return -1;
} catch (const std::bad_alloc&) {
    setErrorTextFrom({"cannot open ", path, ": the process has no memory left"});
    return -1;
}

int32_t closeHandle(int32_t handle) noexcept {
    std::unique_ptr<KeptDevice> ending;
    {
        const MutexLock guard(lock);
        KeptDevice*& place = find(handle);
        if (place == nullptr || place->closed)
            return -1;
        place->closed = true;
        ending = removeIfUnused(place);
    }
    if (ending)
        end(ending->opened);
    return 1;
}

Kept takeHandle(int32_t handle, Opened& opened) noexcept {
    const MutexLock guard(lock);
    KeptDevice* const device = find(handle);
    if (device == nullptr)
        return Kept::unknown;
    if (device->closed)
        return Kept::closed;
    if (device->inUse)
        return Kept::busy;
    device->inUse = true;
    opened = device->opened;
    return Kept::taken;
}

void releaseHandle(int32_t handle) noexcept {
    std::unique_ptr<KeptDevice> ending;
    {
        const MutexLock guard(lock);
        KeptDevice*& place = find(handle);
        if (place == nullptr)
            return;
        place->inUse = false;
        ending = removeIfUnused(place);
    }
    if (ending)
        end(ending->opened);
}

} // namespace brisolt::drivers

// What the device layer keeps behind Device: which driver a path belongs to, and the devices that
// ComHostOpenDevice handed out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "brisolt_host.h"
#include "platform/device_options.h"

namespace brisolt::drivers {

/// A driver's device: everything that is needed to call it.
struct Opened {
    ComHostDriver driver{};
    void* self = nullptr;
    int32_t handle = -1;
    DeviceOptions options; ///< what its path asked for
    bool hasOptions = false;
    bool startsEmpty = false; ///< nothing that comes is older than the open
    bool ofProgram = false;   ///< its driver is the program's
};

/// The driver whose scheme the path begins with; the tty driver for every other path.
ComHostDriver forPath(std::string_view path) noexcept;
/// Whether the path begins with a scheme that has a driver.
bool hasDriver(std::string_view path) noexcept;
/// Whether that driver is one of the library's.
bool isBuiltIn(std::string_view path) noexcept;
/// Whether the path is a connection to another machine.
bool isNetworkPath(std::string_view path) noexcept;
/// Opens a path through its driver, which gets it as it stands; the options are those that are not in it. 1, or a
/// negative error number; the calling thread's error text then says why.
int32_t openDriver(const std::string& path, const DeviceOptions& options, Opened& opened) noexcept;
/// Opens a path with what it asks for; what that is the caller gets, too. As openDriver.
int32_t openPath(const std::string& path, DeviceOptions& options, Opened& opened) noexcept;

/// Offers a handle that is no tty's to the registered drivers. True when one took it over.
bool adoptForeign(int32_t handle, ComHostDriver& driver, void*& self) noexcept;

/// What a handle is among those of ComHostOpenDevice.
enum class Kept { unknown, closed, busy, taken };
/// Takes a kept handle's device for a port, one at a time; give it back with releaseHandle.
Kept takeHandle(int32_t handle, Opened& opened) noexcept;
void releaseHandle(int32_t handle) noexcept;

} // namespace brisolt::drivers

// The host's serial devices: the driver behind a plain path, and what the host knows of the devices it has.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "brisolt_host.h"
#include "platform/device_options.h"

namespace brisolt::serial {

/// The driver of every path without a scheme.
const ComHostDriver& ttyDriver() noexcept;
/// Opens a tty as its options say; else as the driver's open, which takes no options.
int32_t openTty(const char* path, const DeviceOptions& options, void** device, int32_t* handle) noexcept;
/// Closes the descriptor that a tty was adopted from, unless its owner has and the number is another's now.
void closeAdoptedDescriptor(void* ttyDevice, int32_t handle) noexcept;
/// Closes a handle that came to us and that no device has taken over. The standard streams stay.
void closeForeign(int32_t handle) noexcept;

/// The device that stands behind a port's number while no other is mapped to it.
std::string defaultPath(int32_t port);
/// The host's serial devices, sorted by path. 1; 0 past the last; -1 the host fails to tell (the error text says why).
int32_t list(int32_t index, std::string& path, std::string& description);

/// The same with all that the host tells about the device; info.size is the caller's.
int32_t describe(int32_t index, ComHostDeviceInfo& info);

/// Tells the window, or the thread when that is 0, of serial devices that come and go (COM_HOST_MESSAGE_DEVICES);
/// both 0: nobody. False when the host cannot tell.
bool tellOfDevices(int32_t window, uint32_t thread);

/// What a device is known by when it comes back under another name.
struct Identity {
    int32_t vendorId = -1; ///< -1: it is on no USB
    int32_t productId = -1;
    int32_t interfaceNumber = -1;
    std::string serialNumber;
    std::string location; ///< the socket: "1-1.2"

    bool known() const noexcept { return vendorId >= 0; }
    /// By its serial number; one without is known by its socket.
    bool isOf(const Identity& other) const noexcept {
        return vendorId == other.vendorId && productId == other.productId &&
               interfaceNumber == other.interfaceNumber && serialNumber == other.serialNumber &&
               (!serialNumber.empty() || location == other.location);
    }
};
/// Of the device that a path leads to. Nothing is opened. Positive: the host's error, since it failed to tell.
int32_t identityOf(const std::string& path, Identity& identity);

/// The USB devices that are there now; none at all when the host fails to tell (the error text says why).
struct UsbDevice {
    std::string path;
    Identity identity;
};
std::optional<std::vector<UsbDevice>> usbDevices();

} // namespace brisolt::serial

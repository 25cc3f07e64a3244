// A device that goes and comes back: the port keeps one and the same device, below which the host's own is taken
// out when it has gone, and another put in its place when it is there again.
//
//                 it has gone                    found, opened, set up as before
//      [there] ----------------> [being sought] ----------------------------------> [there]
//                                      |
//                                      | its time is over
//                                      v
//                                    [gone]
//
// One thread of the library's, the keeper, takes all steps, for all such devices; it exists while there is one and
// sleeps until a device has gone or the host says that something has come. What the host does not tell of, a line to
// another machine or a device that somebody else has, is tried again after 0.1 s, then after twice as long each
// time, up to 5 s; when somebody closes the device, from 0.1 s on again. Whoever is inside a device holds it, so a
// device that was taken out is closed by the last who leaves it. There are two places, the one in use and the one
// that is being left: a device that flaps waits for the second, and piles nothing up.
#pragma once

#include <string>

#include "device/driver_registry.h"
#include "platform/device_options.h"

namespace brisolt::drivers {

/// How a device is opened each time, by the path that it has then. 1, or a negative error number.
using OpenInner = int32_t (*)(const std::string& path, const DeviceOptions& options, Opened& opened);

/// Opens a path and keeps what is behind it. 1, or a negative error number. `hostDevice`: the path names a device
/// of the host's, which may be known by more than its name. Its handle is none of the device's, which may change.
int32_t openKept(const std::string& path, const DeviceOptions& options, bool hostDevice, OpenInner open,
                 Opened& opened);
/// Whether an open device is one of these: its descriptor changes when it comes back.
bool isKept(const ComHostDriver& driver) noexcept;
/// Whether a device, or the one that is kept, has counters at all.
bool hasCounters(const ComHostDriver& driver, void* self) noexcept;

} // namespace brisolt::drivers

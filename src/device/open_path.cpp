// Opening a device by its path: what stands before the options is a device of the host, a USB device by its
// numbers, or a scheme of a driver; what stands behind them is done here and by the driver.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "device/device_path.h"
#include "device/driver_registry.h"
#include "device/kept_device.h"
#include "device/usb_path.h"
#include "platform/error_text.h"
#include "platform/file.h"
#include "platform/serial.h"

namespace brisolt::drivers {

namespace {

/// What a driver that knows nothing of our options lets us do through its own functions.
constexpr uint32_t possibleForAll = optionDtr | optionRts | optionClose | optionLowLatency | optionKeep |
                                    optionRs485 | optionRs485Rts | optionRs485Before | optionRs485After;

int32_t refuse(const std::string& path, const std::string& why) {
    setErrorText("cannot open " + path + ": " + why);
    return -EINVAL;
}

int32_t openHostDevice(const std::string& path, const DeviceOptions& options, Opened& opened) {
    opened.driver = serial::ttyDriver();
    const int32_t result = serial::openTty(path.c_str(), options, &opened.self, &opened.handle);
    if (result == -ENOMEM)
        setErrorTextFrom({"cannot open ", path, ": ", std::strerror(ENOMEM)});
    if (result == -ENOENT && path.find(':') < path.find('/'))
        setErrorTextFrom({errorText(),
                          ", and no scheme either: those are null-modem, loop, tcp, tls, rfc2217, "
                          "rfc2217-tls, usb and the program's own"});
    return result;
}

int32_t openScheme(const std::string& path, const DeviceOptions& options, Opened& opened) {
    return openDriver(path, options, opened);
}

/// Options that a driver with a scheme can do at all.
uint32_t possibleFor(const std::string& path) noexcept {
    uint32_t keys = possibleForAll;
    const bool hasLines = forPath(path).line != nullptr;
    if (!hasLines)
        keys &= ~uint32_t{optionDtr | optionRts | optionClose};
    // With RTS it takes somebody who knows when the last bit has left.
    if (!hasLines || isNetworkPath(path))
        keys &= ~uint32_t{optionRs485 | optionRs485Rts | optionRs485Before | optionRs485After};
    return keys;
}

/// Those that ask for more than is possible: what a key stands for when it is not given is always done.
uint32_t impossible(const DevicePath& device, uint32_t possible) noexcept {
    const DeviceOptions& options = device.options;
    const DeviceOptions defaults;
    uint32_t keys = device.asked & ~possible;
    if (options.dtr == defaults.dtr)
        keys &= ~uint32_t{optionDtr};
    if (options.rts == defaults.rts)
        keys &= ~uint32_t{optionRts};
    if (!options.leaveLinesAtClose)
        keys &= ~uint32_t{optionClose};
    if (options.rs485.mode == Rs485Mode::off)
        keys &= ~uint32_t{optionRs485 | optionRs485Rts | optionRs485Before | optionRs485After};
    if (options.exclusive == defaults.exclusive)
        keys &= ~uint32_t{optionExclusive};
    if (options.restore == defaults.restore)
        keys &= ~uint32_t{optionRestore};
    if (!options.marks)
        keys &= ~uint32_t{optionMarks};
    if (!options.rs485.echo)
        keys &= ~uint32_t{optionRs485Echo};
    if (options.rs485.resistor == Rs485Resistor::leave)
        keys &= ~uint32_t{optionRs485Termination};
    if (options.rs485.mode == Rs485Mode::driver)
        keys |= optionRs485;
    return keys;
}

int32_t refuseOption(const std::string& path, uint32_t keys, uint32_t possible) {
    const bool byRts = (possible & optionRs485) != 0;
    return refuse(path, "the option " + std::string(optionName(keys)) +
                            " is not possible here; possible: " + optionNames(possible) +
                            (byRts ? " (rs485 by rts alone)" : "") + " and what the driver knows itself");
}

/// A file whose name merely looks as if it had options.
bool isFile(const std::string& path) {
    return path.find('?') != std::string::npos && file::taken(path.c_str());
}

int32_t openThrough(const DevicePath& device, bool hostDevice, OpenInner open, Opened& opened) {
    if (device.options.keepSeconds == 0)
        return open(device.name, device.options, opened);
    return openKept(device.name, device.options, hostDevice, open, opened);
}

int32_t openDevice(const std::string& path, DeviceOptions& options, Opened& opened) {
    DevicePath device;
    std::string error;
    const bool known = hasDriver(path);
    if (!known && isFile(path)) {
        device.name = path;
        return openThrough(device, true, openHostDevice, opened);
    }
    if (!readDevicePath(path, known, device, error))
        return refuse(path, error);
    if (device.options.rs485.mode == Rs485Mode::rts) // it listens from the first moment on
        device.options.rts = device.options.rs485.rtsHigh ? LineStart::lower : LineStart::raise;
    options = device.options;
    opened.hasOptions = device.asked != 0;
    if (known) {
        opened.startsEmpty = isNetworkPath(path);
        opened.ofProgram = !isBuiltIn(path);
        const uint32_t possible = possibleFor(path);
        if (const uint32_t keys = impossible(device, possible); keys != 0)
            return refuseOption(path, keys, possible);
        return openThrough(device, false, openScheme, opened);
    }
    if (isUsbPath(device.name) && !findUsbDevice(device.name, device.name, error))
        return refuse(path, error);
    return openThrough(device, true, openHostDevice, opened);
}

} // namespace

int32_t openPath(const std::string& path, DeviceOptions& options, Opened& opened) noexcept try {
    return openDevice(path, options, opened);
} catch (...) {
    setErrorTextFrom({"cannot open ", path, ": ", std::strerror(ENOMEM)});
    return -ENOMEM;
}

} // namespace brisolt::drivers

// Lists the host's serial devices from what the kernel tells about them. Nothing is opened: opening a
// serial device raises its lines, and a modem or a microcontroller behind it may take that for a start.
#include "platform/posix/device_list.h"

#include <algorithm>
#include <cstring>

#include "platform/error_text.h"
#include "platform/posix/kernel_files.h"
#include "platform/posix/usb_identity.h"
#include "platform/serial.h"

namespace brisolt::serial {
namespace {

using namespace kernelFiles;

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// The driver of a device. The kernel puts devices of its own between a UART and its port, whose drivers
/// say nothing to people; the one above them counts.
std::string driverName(std::string device) {
    for (int32_t level = 0; level < 4 && linkedName(device + "/subsystem") == "serial-base"; ++level)
        device = parent(device);
    return linkedName(device + "/driver");
}

/// Manufacturer, product and serial number of the USB device that a port is part of, if it is.
std::string productText(const std::string& entry) {
    const UsbAbout about = usbAbout(entry);
    std::string text;
    for (const std::string& part : {about.manufacturer, about.product, about.identity.serialNumber})
        if (!part.empty())
            text += (text.empty() ? "" : " ") + part;
    return text;
}

/// The kernel keeps names for UARTs that the machine might have; a type of 0 is one that it has not.
bool isMissingUart(const std::string& entry) {
    return firstLine(entry + "/type") == "0";
}

bool listEntry(const std::string& directory, std::string name, ListedDevice& found) {
    const std::string entry = directory + '/' + name;
    const std::string device = resolved(entry + "/device");
    if (device.empty() || isMissingUart(entry)) // consoles and pseudo terminals have no device behind them
        return false;
    const std::string driver = driverName(device);
    if (driver.empty())
        return false;
    std::replace(name.begin(), name.end(), '!', '/'); // how the kernel writes a name with a directory in it
    const std::string product = productText(entry);
    found.path = "/dev/" + name;
    found.driver = driver;
    found.entry = entry;
    found.description = product.empty() ? driver : product + " (" + driver + ")";
    return true;
}

} // namespace

bool naturallyLess(std::string_view a, std::string_view b) {
    std::size_t i = 0;
    std::size_t j = 0;
    const auto number = [](std::string_view text, std::size_t& at) {
        while (at + 1 < text.size() && text[at] == '0' && isDigit(text[at + 1]))
            ++at;
        const std::size_t begin = at;
        while (at < text.size() && isDigit(text[at]))
            ++at;
        return text.substr(begin, at - begin);
    };
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            const std::string_view x = number(a, i);
            const std::string_view y = number(b, j);
            if (x != y)
                return x.size() != y.size() ? x.size() < y.size() : x < y;
            continue;
        }
        if (a[i] != b[j])
            return a[i] < b[j];
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
}

bool looksWereWhole(const std::string& directory) {
    const int32_t error = takeFailure();
    if (error != 0)
        setErrorTextFrom({"cannot list the devices in ", directory, ": ", std::strerror(error)});
    return error == 0;
}

std::optional<std::vector<ListedDevice>> listBelow(const std::string& classDirectory) {
    std::vector<ListedDevice> devices;
    takeFailure(); // of somebody else's look
    for (const std::string& name : entries(classDirectory)) {
        ListedDevice found;
        if (listEntry(classDirectory, name, found))
            devices.push_back(std::move(found));
    }
    if (!looksWereWhole(classDirectory))
        return std::nullopt;
    std::sort(devices.begin(), devices.end(),
              [](const ListedDevice& a, const ListedDevice& b) { return naturallyLess(a.path, b.path); });
    return devices;
}

int32_t list(int32_t index, std::string& path, std::string& description) {
    if (index < 0)
        return 0;
    std::optional<std::vector<ListedDevice>> devices = listBelow("/sys/class/tty");
    if (!devices)
        return -1;
    if (static_cast<std::size_t>(index) >= devices->size())
        return 0;
    path = std::move((*devices)[static_cast<std::size_t>(index)].path);
    description = std::move((*devices)[static_cast<std::size_t>(index)].description);
    return 1;
}

std::string defaultPath(int32_t port) {
    std::string named = "/dev/com" + std::to_string(port);
    return isThere(named) ? named : "/dev/ttyS" + std::to_string(port - 1);
}

} // namespace brisolt::serial

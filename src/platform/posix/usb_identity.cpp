#include "platform/posix/usb_identity.h"

#include <cerrno>
#include <charconv>

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "platform/posix/device_list.h"
#include "platform/posix/kernel_files.h"

namespace brisolt::serial {

namespace {

using namespace kernelFiles;

/// -1: there is no such file.
int32_t hexIn(const std::string& file) {
    const std::string text = firstLine(file);
    int32_t value = -1;
    std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return value;
}

} // namespace

// A port is some levels below the USB interface that it belongs to, and that is below the device.
UsbAbout usbAbout(const std::string& entry) {
    UsbAbout about;
    int32_t interfaceNumber = -1;
    std::string at = resolved(entry + "/device");
    for (int32_t level = 0; level < 6 && !at.empty(); ++level, at = parent(at)) {
        if (interfaceNumber < 0)
            interfaceNumber = hexIn(at + "/bInterfaceNumber");
        if (!isThere(at + "/idVendor"))
            continue;
        about.identity = {.vendorId = hexIn(at + "/idVendor"),
                          .productId = hexIn(at + "/idProduct"),
                          .interfaceNumber = interfaceNumber,
                          .serialNumber = firstLine(at + "/serial"),
                          .location = at.substr(at.rfind('/') + 1)};
        about.manufacturer = firstLine(at + "/manufacturer");
        about.product = firstLine(at + "/product");
        break;
    }
    return about;
}

int32_t identityOf(const std::string& path, Identity& identity) {
    struct stat about {};
    if (stat(path.c_str(), &about) != 0)
        return errno == EIO || errno == ENOMEM ? errno : 0; // of the rest an open will say so
    if (!S_ISCHR(about.st_mode))
        return 0;
    takeFailure(); // of somebody else's look
    identity = usbAbout("/sys/dev/char/" + std::to_string(major(about.st_rdev)) + ":" +
                        std::to_string(minor(about.st_rdev)))
                   .identity;
    return takeFailure();
}

std::optional<std::vector<UsbDevice>> usbDevices() {
    const std::string directory = "/sys/class/tty";
    const std::optional<std::vector<ListedDevice>> devices = listBelow(directory);
    if (!devices)
        return std::nullopt;
    std::vector<UsbDevice> found;
    for (const ListedDevice& device : *devices)
        if (Identity identity = usbAbout(device.entry).identity; identity.known())
            found.push_back({device.path, std::move(identity)});
    return looksWereWhole(directory) ? std::optional(std::move(found)) : std::nullopt;
}

} // namespace brisolt::serial

// All that the host tells about a serial device, without opening it.
#include <algorithm>
#include <cstring>

#include "platform/posix/device_holder.h"
#include "platform/posix/device_list.h"
#include "platform/posix/kernel_files.h"
#include "platform/posix/usb_identity.h"

namespace brisolt::serial {

namespace {

template <std::size_t N> void set(char (&field)[N], const std::string& text) noexcept {
    const std::size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    field[length] = 0;
}

/// The link by which the device manager names the device for good.
std::string stableLink(const std::string& path) {
    const std::string folder = "/dev/serial/by-id/";
    for (const std::string& name : kernelFiles::entries(folder))
        if (kernelFiles::resolved(folder + name) == path)
            return folder + name;
    return {};
}

} // namespace

int32_t describe(int32_t index, ComHostDeviceInfo& info) {
    const std::optional<std::vector<ListedDevice>> devices = listBelow("/sys/class/tty");
    if (!devices)
        return -1;
    if (index < 0 || static_cast<std::size_t>(index) >= devices->size())
        return 0;
    const ListedDevice& device = (*devices)[static_cast<std::size_t>(index)];
    const UsbAbout about = usbAbout(device.entry);
    const std::string stable = stableLink(device.path);
    if (!looksWereWhole(device.entry))
        return -1;
    const Holder holder = holderOf(device.path);
    set(info.path, device.path);
    set(info.stablePath, stable);
    set(info.description, device.description);
    set(info.manufacturer, about.manufacturer);
    set(info.product, about.product);
    set(info.serialNumber, about.identity.serialNumber);
    set(info.driver, device.driver);
    set(info.location, about.identity.location);
    info.vendorId = about.identity.vendorId;
    info.productId = about.identity.productId;
    info.interfaceNumber = about.identity.interfaceNumber;
    info.holder = holder.process;
    set(info.holderName, holder.name);
    return 1;
}

} // namespace brisolt::serial

#include "device/usb_path.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <vector>

#include "platform/error_text.h"
#include "platform/serial.h"

namespace brisolt::drivers {

namespace {

constexpr std::string_view scheme = "usb:";

/// A field of the path; empty or "*": any.
struct Wanted {
    std::string_view vendor, product, serial, interfaceNumber;
    bool complete = false; ///< vendor and product are there, and nothing behind the interface
};

Wanted readFields(std::string_view name) {
    name.remove_prefix(scheme.size());
    std::array<std::string_view, 4> fields;
    std::size_t count = 0;
    for (bool more = true; more && count < fields.size(); ++count) {
        const std::size_t colon = name.find(':');
        fields[count] = name.substr(0, colon);
        more = colon != std::string_view::npos;
        name.remove_prefix(more ? colon + 1 : name.size());
    }
    return {fields[0], fields[1], fields[2], fields[3],
            count >= 2 && !fields[0].empty() && !fields[1].empty() && name.empty()};
}

bool isAny(std::string_view field) noexcept {
    return field.empty() || field == "*";
}

/// False also when the field is no number of that base.
bool fits(std::string_view field, int32_t value, int32_t base) noexcept {
    if (isAny(field))
        return true;
    int32_t wanted = -1;
    const auto [end, failed] = std::from_chars(field.data(), field.data() + field.size(), wanted, base);
    return failed == std::errc() && end == field.data() + field.size() && wanted == value;
}

bool fits(const Wanted& wanted, const serial::Identity& device) noexcept {
    return fits(wanted.vendor, device.vendorId, 16) && fits(wanted.product, device.productId, 16) &&
           (isAny(wanted.serial) || wanted.serial == device.serialNumber) &&
           fits(wanted.interfaceNumber, device.interfaceNumber, 10);
}

std::string describe(const serial::UsbDevice& device) {
    std::array<char, 32> numbers{};
    std::snprintf(numbers.data(), numbers.size(), "%04x:%04x",
                  static_cast<uint32_t>(device.identity.vendorId),
                  static_cast<uint32_t>(device.identity.productId));
    return device.path + " (usb:" + numbers.data() + ":" + device.identity.serialNumber + ":" +
           std::to_string(device.identity.interfaceNumber) + ", at " + device.identity.location + ")";
}

std::string listOf(const std::vector<serial::UsbDevice>& devices) {
    std::string text;
    for (const serial::UsbDevice& device : devices)
        text.append(text.empty() ? "" : ", ").append(describe(device));
    return text.empty() ? "there is no serial USB device" : "there are " + text;
}

} // namespace

bool isUsbPath(std::string_view name) noexcept {
    return name.substr(0, scheme.size()) == scheme;
}

bool findUsbDevice(std::string_view name, std::string& path, std::string& error) {
    const Wanted wanted = readFields(name);
    if (!wanted.complete) {
        error = "a USB device is usb:VID:PID[:SERIAL[:INTERFACE]], VID and PID in hex, INTERFACE in decimal, "
                "any field *";
        return false;
    }
    const std::optional<std::vector<serial::UsbDevice>> devices = serial::usbDevices();
    if (!devices) {
        error = errorText();
        return false;
    }
    std::vector<serial::UsbDevice> fitting;
    for (const serial::UsbDevice& device : *devices)
        if (fits(wanted, device.identity))
            fitting.push_back(device);
    if (fitting.size() != 1) {
        error = fitting.empty() ? "none fits; " + listOf(*devices) : "several fit; " + listOf(fitting);
        return false;
    }
    path = fitting.front().path;
    return true;
}

} // namespace brisolt::drivers

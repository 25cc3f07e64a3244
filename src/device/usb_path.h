// Paths that name a USB device by its numbers: "usb:VID:PID[:SERIAL[:INTERFACE]]", any field "*".
#pragma once

#include <string>
#include <string_view>

namespace brisolt::drivers {

bool isUsbPath(std::string_view name) noexcept;
/// The path of the one device that fits. False: none or several do; `error` lists what is there.
bool findUsbDevice(std::string_view name, std::string& path, std::string& error);

} // namespace brisolt::drivers

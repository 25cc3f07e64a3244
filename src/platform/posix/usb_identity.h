// What the kernel tells about the USB device that a serial device belongs to, in the files that it keeps of each.
#pragma once

#include <string>

#include "platform/serial.h"

namespace brisolt::serial {

struct UsbAbout {
    Identity identity;
    std::string manufacturer, product;
};
/// Of the kernel's entry of a tty; one that is on no USB has no vendor.
UsbAbout usbAbout(const std::string& entry);

} // namespace brisolt::serial

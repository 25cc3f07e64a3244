// The host functions about devices: names, the list, handles, drivers, and why something was refused.
#include <algorithm>
#include <cstring>

#include "api/export.h"
#include "brisolt_host.h"
#include "device/device.h"
#include "platform/error_text.h"
#include "platform/serial.h"

namespace {

/// Copies as much of a text as fits, terminated.
void copyCut(std::string_view text, char* buffer, int32_t size) {
    if (buffer == nullptr || size < 1)
        return;
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size - 1));
    std::memcpy(buffer, text.data(), length);
    buffer[length] = 0;
}

} // namespace

BRISOLT_EXPORT int32_t ComHostMapDevice(int32_t port, const char* path) {
    return brisolt::deviceNames::map(port, path);
}

BRISOLT_EXPORT int32_t ComHostGetDevicePath(int32_t port, char* buffer, int32_t size) try {
    if (port < 1 || port > 256 || buffer == nullptr || size < 1)
        return -1;
    const std::string path = brisolt::deviceNames::resolve("COM" + std::to_string(port));
    copyCut(path, buffer, size);
    return static_cast<int32_t>(path.size());
} catch (...) {
    return -1;
}

BRISOLT_EXPORT int32_t ComHostGetDevice(int32_t index, char* path, int32_t pathSize, char* description,
                                        int32_t descriptionSize) try {
    std::string foundPath;
    std::string foundDescription;
    const int32_t result = brisolt::serial::list(index, foundPath, foundDescription);
    if (result < 1)
        return result;
    copyCut(foundPath, path, pathSize);
    copyCut(foundDescription, description, descriptionSize);
    return 1;
} catch (...) {
    brisolt::setErrorTextFrom({"cannot list the devices: no memory"});
    return -1;
}

BRISOLT_EXPORT int32_t ComHostGetErrorText(char* buffer, int32_t size) {
    if (buffer == nullptr || size < 1)
        return -1;
    const std::string& text = brisolt::errorText();
    copyCut(text, buffer, size);
    return static_cast<int32_t>(text.size());
}

BRISOLT_EXPORT int32_t ComHostOpenDevice(const char* path) {
    return brisolt::drivers::openHandle(path);
}

BRISOLT_EXPORT int32_t ComHostCloseDevice(int32_t handle) {
    return brisolt::drivers::closeHandle(handle);
}

BRISOLT_EXPORT int32_t ComHostRegisterDriver(const char* scheme, const ComHostDriver* driver) {
    return brisolt::drivers::registerDriver(scheme, driver);
}

BRISOLT_EXPORT int32_t ComHostRing(const char* path, int32_t on) {
    if (path == nullptr)
        return -1;
    using namespace brisolt::drivers;
    return ringNullModem(path, on != 0) || ringLoop(path, on != 0) ? 1 : -1;
}

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <brisolt_host.h>

#include "commands.h"
#include "output.h"

int listPorts() {
    struct Device {
        std::string path, description;
    };
    std::vector<Device> devices;
    std::array<char, 260> path{};
    std::array<char, 512> description{};
    while (ComHostGetDevice(static_cast<int32_t>(devices.size()), path.data(), path.size(),
                            description.data(), description.size()) == 1)
        devices.push_back({printable(path.data()), printable(description.data())});

    if (devices.empty()) {
        std::puts("No serial devices found. A USB adapter shows up here as soon as it is plugged in.");
        return exitDone;
    }
    std::size_t width = std::string("DEVICE").size();
    for (const Device& device : devices)
        width = std::max(width, device.path.size());
    std::printf("%-*s  DESCRIPTION\n", static_cast<int>(width), "DEVICE");
    for (const Device& device : devices)
        std::printf("%-*s  %s\n", static_cast<int>(width), device.path.c_str(), device.description.c_str());
    return exitDone;
}

#include "port.h"

#include <array>
#include <stdexcept>

#include <brisolt.h>
#include <brisolt_host.h>

Port::Port(int32_t number, const std::string& path, const std::string& trace) : number_(number) {
    constexpr uint32_t ringSize = 65536;
    ComHostMapDevice(number, path.c_str());
    const int32_t result = ComOpen("demo", number, 115200, 8, 1, 1, ringSize, ringSize);
    if (result != number) {
        std::array<char, 256> why{};
        ComHostGetErrorText(why.data(), why.size());
        throw std::runtime_error(path + ": result " + std::to_string(result) + " " + why.data());
    }
    ComHostSetLossless(number, 1);
    ComSetBackgroundTimeout(number, 0);
    ComSetPortDebugFile(number, trace.c_str());
}

Port::~Port() {
    ComClose(number_);
}

void need(bool done, const std::string& what) {
    if (!done)
        throw std::runtime_error(what);
}

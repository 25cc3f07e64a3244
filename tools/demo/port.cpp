#include "port.h"

#include <array>
#include <stdexcept>

#include <brisolt.h>
#include <brisolt_host.h>

Port::Port(const std::string& path, const std::string& trace)
    : number_(ComHostOpen(path.c_str(), 115200, "8N1")) {
    if (number_ < 0) {
        std::array<char, 256> why{};
        ComHostGetErrorText(why.data(), why.size());
        throw std::runtime_error(path + ": result " + std::to_string(number_) + " " + why.data());
    }
    ComSetPortDebugFile(number_, trace.c_str());
}

Port::~Port() {
    constexpr int32_t patience = 1000; // milliseconds
    ComHostClose(number_, patience);
}

void need(bool done, const std::string& what) {
    if (!done)
        throw std::runtime_error(what);
}

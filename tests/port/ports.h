// What the tests of the port engine share.
#pragma once

#include <string>

#include "brisolt.h"
#include "brisolt_host.h"
#include "port/record.h"
#include "support/timing.h"

namespace brisolt::test {

inline int32_t openOn(int32_t port, const std::string& path, const char* name = "COM") {
    ComHostMapDevice(port, path.c_str());
    return ComOpen(name, port, 9600, 8, 1, 1, 2048, 2048);
}

inline PortRecord& recordOf(int32_t port) {
    return *static_cast<PortRecord*>(ComPidtoP(port));
}

inline int32_t send(int32_t port, std::string bytes) {
    return ComWrite(port, bytes.data(), static_cast<int32_t>(bytes.size()));
}

/// Up to `count` bytes, as many as come in time.
inline std::string receiveWithin(std::chrono::milliseconds limit, int32_t port, std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t got = 0;
    const auto all = [&] {
        const int32_t more = ComRead(port, bytes.data() + got, static_cast<int32_t>(count - got));
        got += more > 0 ? static_cast<std::size_t>(more) : 0;
        return got == count;
    };
    eventually(all, limit);
    bytes.resize(got);
    return bytes;
}

inline std::string receive(int32_t port, std::size_t count) {
    return receiveWithin(std::chrono::seconds(20), port, count);
}

} // namespace brisolt::test

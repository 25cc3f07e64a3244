// What the tests of the port engine share.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "api/brisolt.h"
#include "api/brisolt_host.h"
#include "platform/clock.h"
#include "port/record.h"

namespace brisolt::test {

/// Lets the library's time run faster, so that the 0.6 s of a close pass in 12 ms.
struct FastClock {
    static constexpr uint32_t factor = 50;
    FastClock() { clock::setTestScale(factor); }
    ~FastClock() { clock::setTestScale(1); }
    FastClock(const FastClock&) = delete;
    FastClock& operator=(const FastClock&) = delete;
};

/// Whether something becomes true in a time that only a fault takes up.
template <class Condition> bool eventually(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

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

/// Up to `count` bytes, waiting as long as eventually() does.
inline std::string receive(int32_t port, std::size_t count) {
    std::string bytes(count, '\0');
    std::size_t got = 0;
    eventually([&] {
        const int32_t more = ComRead(port, bytes.data() + got, static_cast<int32_t>(count - got));
        got += more > 0 ? static_cast<std::size_t>(more) : 0;
        return got == count;
    });
    bytes.resize(got);
    return bytes;
}

} // namespace brisolt::test

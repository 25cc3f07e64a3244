// What the tests of text transfer share: files, ports that end a transfer without delay, and steps.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "stream/open_port.h"

namespace brisolt::test {

inline constexpr char endMarker = 26;

class Files {
public:
    std::string path(const std::string& name) const { return directory_.file(name); }
    std::string make(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string bytes(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    /// Whether this process has it open.
    bool isOpen(const std::string& name) const {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code ended;
            if (std::filesystem::read_symlink(entry.path(), ended) == path(name))
                return true;
        }
        return false;
    }

private:
    TempDir directory_;
};

/// A port whose flushes do not wait and whose rounds come at once.
class QuickPort : public OpenPort {
public:
    QuickPort(int32_t number, const std::string& device, uint32_t rings = 65536)
        : OpenPort(number, device, {.rxSize = rings, .txSize = rings}) {
        record().flushDelay = 0;
        ComSetBackgroundTimeout(number, 0);
        ComHostSetLossless(number, 1);
    }
};

/// With files of its own; what a test leaves posted to this thread is forgotten.
class TransferTest : public testing::Test {
protected:
    ~TransferTest() override {
        for (ComHostMessage left; ComHostGetMessage(&left, 0) != 0;) {
        }
    }
    Files files;
};

/// The steps up to the one that does not give 5, and its result.
struct Steps {
    int32_t count = 0, result = 5;
};
inline Steps allSteps(int32_t (*step)(int32_t), int32_t port) {
    Steps steps;
    const auto end = SteadyClock::now() + 20s;
    while (steps.result == 5 && SteadyClock::now() < end) {
        steps.result = step(port);
        ++steps.count;
    }
    return steps;
}
inline Steps send(int32_t port, const std::string& path, int32_t chunk) {
    EXPECT_EQ(CInitSndAPkt(port, path.c_str(), chunk), 1);
    return allSteps(CSendAPkt, port);
}

} // namespace brisolt::test

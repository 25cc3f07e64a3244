// Ports that are open, their records and bytes, and their log files.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "port/port_table.h"
#include "port/ports.h"
#include "support/files.h"
#include "support/pattern.h"
#include "support/pty.h"
#include "support/timing.h"

namespace brisolt::test {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

/// A port opened on a device by its path, closed at the latest with the test.
class OpenPort {
public:
    struct Shape {
        const char* name = "test"; ///< "THUNK": direct mode
        int32_t parity = 1;
        uint32_t rxSize = 2048, txSize = 2048;
    };
    OpenPort(int32_t number, const std::string& device, const Shape& shape) : number_(number) {
        EXPECT_EQ(ComHostMapDevice(number, device.c_str()), 1);
        EXPECT_EQ(ComOpen(shape.name, number, 9600, 8, shape.parity, 1, shape.rxSize, shape.txSize), number);
        hold_ = std::make_unique<HeldPort>(number);
    }
    OpenPort(int32_t number, const std::string& device) : OpenPort(number, device, Shape{}) {}
    OpenPort(const OpenPort&) = delete;
    OpenPort& operator=(const OpenPort&) = delete;
    ~OpenPort() {
        hold_.reset();
        ComHostClose(number_, 0); // without the pauses of ComClose
    }

    operator int32_t() const { return number_; }
    Port& inside() const { return **hold_; }
    PortRecord& record() const { return *inside().record; }

    /// The test lets go of the port's inside, so that a close can end its device.
    int32_t close() {
        hold_.reset();
        return ComClose(number_);
    }

private:
    int32_t number_;
    std::unique_ptr<HeldPort> hold_;
};

/// A log file of a port, read entry by entry.
class LogFile {
public:
    std::string path() const { return directory_.file("log.txt"); }
    std::string text() const { return contentsOf(path()); }
    /// The texts of the entries that begin with one of `beginnings` (all of them when there are none).
    std::vector<std::string> entries(const std::vector<std::string>& beginnings = {}) const {
        // Each stands behind a stamp such as "[11/19/26 04:51:58 7 p3]", on a line of its own.
        const std::string all = text();
        std::vector<std::string> found;
        for (std::size_t stamp = all.find("\r\n["); stamp != std::string::npos;) {
            const std::size_t start = all.find(']', stamp) + 1;
            stamp = all.find("\r\n[", start);
            std::string entry = all.substr(start, stamp - start);
            const auto begins = [&entry](const std::string& text) { return entry.starts_with(text); };
            if (beginnings.empty() || std::any_of(beginnings.begin(), beginnings.end(), begins))
                found.push_back(std::move(entry));
        }
        return found;
    }

private:
    TempDir directory_;
};

/// The far end sends, and it is in the ring when this returns.
inline void arrive(int32_t port, const Pty& far, const std::string& bytes) {
    const int32_t all = ComStatus(port) + static_cast<int32_t>(far.write(bytes));
    ASSERT_TRUE(eventually([=] { return ComStatus(port) == all; }));
}

inline void sleepHalfASecond() {
    std::this_thread::sleep_for(500ms);
}

/// What one ComRead of at most `count` bytes gives.
inline std::string readUpTo(int32_t port, int32_t count) {
    std::string bytes(static_cast<std::size_t>(count), '\0');
    const int32_t got = ComRead(port, bytes.data(), count);
    bytes.resize(static_cast<std::size_t>(std::max(got, 0)));
    return bytes;
}

/// What has come when `count` bytes are there, or a limit that only a fault reaches.
inline std::string readTimed(int32_t port, int32_t count, int32_t hundredths = 1000) {
    std::string bytes(static_cast<std::size_t>(count), '\0');
    const int32_t got = ComReadTimed(port, bytes.data(), count, hundredths);
    bytes.resize(static_cast<std::size_t>(std::max(got, 0)));
    return bytes;
}

} // namespace brisolt::test

// A port opened by path, and the far end of a null modem.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "brisolt.h"
#include "brisolt_host.h"
#include "support/pattern.h"
#include "support/timing.h"

namespace brisolt::test {

using namespace std::chrono_literals;

inline std::string errorTextNow() {
    char text[512];
    return ComHostGetErrorText(text, sizeof text) > 0 ? text : "";
}

class FieldPort {
public:
    explicit FieldPort(const std::string& path, int32_t baudRate = 115200)
        : number(ComHostOpen(path.c_str(), baudRate, nullptr)) {
        EXPECT_GT(number, 0) << errorTextNow();
    }
    FieldPort(const FieldPort&) = delete;
    FieldPort& operator=(const FieldPort&) = delete;
    ~FieldPort() { ComHostClose(number, 0); }

    int32_t write(const std::string& bytes, int32_t milliseconds = 10000) const {
        return ComHostWrite(number, bytes.data(), static_cast<int32_t>(bytes.size()), milliseconds);
    }
    /// Reads until it has that many bytes or none come.
    std::string read(std::size_t count, int32_t milliseconds = 10000) const {
        std::string bytes;
        char piece[4096];
        while (bytes.size() < count) {
            const auto most = static_cast<int32_t>(std::min(sizeof piece, count - bytes.size()));
            const int32_t got = ComHostRead(number, piece, most, milliseconds);
            if (got <= 0)
                break;
            bytes.append(piece, static_cast<std::size_t>(got));
        }
        return bytes;
    }
    ComHostCounters counters() const {
        ComHostCounters counted{};
        counted.size = sizeof counted;
        EXPECT_EQ(ComHostGetCounters(number, &counted), 1);
        return counted;
    }

    operator int32_t() const { return number; }

    const int32_t number;
};

} // namespace brisolt::test

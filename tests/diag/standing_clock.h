// What the tests of logs and captures share: an open port at a moment that does not pass, and its files.
#pragma once

#include "stream/open_port.h"
#include "support/bare_port.h"

namespace brisolt::test {

struct StandingClock : testing::Test {
    StandingClock() {
        const clock::LocalTime moment{2026, 11, 19, 4, 51, 58, 7};
        clock::setTestLocalTime(&moment);
    }
    ~StandingClock() override { clock::setTestLocalTime(nullptr); }

    static std::string contents(const std::filesystem::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static std::string header(const std::string& title) {
        return "\r\n\r\n  ****OPEN " + title + "  Version:5.30  Date:11/19/26 Time:04:51:58 ****\r\n";
    }
    static inline const std::string traceStamp = "\r\n[11/19/26 04:51:58 7 p3]";

    TempDir directory;
    BarePort port{3};
};

} // namespace brisolt::test

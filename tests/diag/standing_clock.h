// What the tests of logs and captures share: an open port at a moment that does not pass, and its files.
#pragma once

#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt::test {

struct StandingClock : testing::Test {
    const Moment moment{{2026, 11, 19, 4, 51, 58, 7}};
    static std::string header(const std::string& title) {
        return "\r\n\r\n  ****OPEN " + title + "  Version:5.30  Date:11/19/26 Time:04:51:58 ****\r\n";
    }
    static inline const std::string traceStamp = "\r\n[11/19/26 04:51:58 7 p3]";

    TempDir directory;
    BarePort port{3};
};

} // namespace brisolt::test

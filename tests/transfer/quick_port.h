// Ports that end a transfer of text without delay, and its steps.
#pragma once

#include "support/open_port.h"

namespace brisolt::test {

inline constexpr char endMarker = 26;

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

struct TransferTest : testing::Test {
    Files files;
};

/// Makes the steps up to the one that does not give 5; its result.
inline int32_t allSteps(int32_t (*step)(int32_t), int32_t port) {
    int32_t result = 5;
    for (const auto end = SteadyClock::now() + 20s; result == 5 && SteadyClock::now() < end;)
        result = step(port);
    return result;
}
/// The result of the first step of a send.
inline int32_t firstStep(int32_t port, const std::string& path, int32_t chunk) {
    EXPECT_EQ(CInitSndAPkt(port, path.c_str(), chunk), 1);
    return CSendAPkt(port);
}
inline int32_t send(int32_t port, const std::string& path, int32_t chunk) {
    EXPECT_EQ(CInitSndAPkt(port, path.c_str(), chunk), 1);
    return allSteps(CSendAPkt, port);
}

} // namespace brisolt::test

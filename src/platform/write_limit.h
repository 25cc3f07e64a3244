// Until when a complete write may last, by the time-outs that a device was given.
#pragma once

#include <algorithm>
#include <cstdint>

#include "brisolt_host.h"
#include "platform/clock.h"

namespace brisolt {

inline clock::Deadline writeLimit(const ComHostTimeouts& timeouts, int32_t count) {
    constexpr uint32_t noLimit = ~uint32_t{0};
    const bool notSet = timeouts.writeConstant == 0 && timeouts.writeMultiplier == 0;
    if (notSet || timeouts.writeConstant == noLimit)
        return clock::Deadline::never();
    const uint64_t limit =
        timeouts.writeConstant + uint64_t{timeouts.writeMultiplier} * static_cast<uint64_t>(count);
    return clock::Deadline::in(static_cast<uint32_t>(std::min<uint64_t>(limit, noLimit - 1)));
}

} // namespace brisolt

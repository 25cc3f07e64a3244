// The addresses of a host by its name.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/clock.h"

namespace brisolt {

/// One address with its port, as the host's own calls take it.
struct HostAddress {
    alignas(8) std::array<unsigned char, 128> bytes{};
    uint32_t size = 0;
    int32_t family = 0;
    std::string text; ///< for people, without the port
};

/// All addresses of a host, or none: then `error` says why. A host whose name servers are silent keeps nobody longer
/// than until then: the question is left behind on a thread of its own, and whoever asks the same meanwhile waits
/// for the same answer.
std::vector<HostAddress> lookUpName(const std::string& host, const std::string& port,
                                    const clock::Deadline& until, std::string& error);

} // namespace brisolt

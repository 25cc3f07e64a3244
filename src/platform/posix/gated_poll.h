// A poll that lets in the signals which a gate of the calling thread holds back (platform/signal_gate.h).
#pragma once

#include <cstdint>
#include <span>

#include <poll.h>

namespace brisolt {

/// As poll().
int32_t gatedPoll(std::span<pollfd> set, int32_t milliseconds) noexcept;

} // namespace brisolt

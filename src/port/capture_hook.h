// Capture on failure keeps a port's protocol entries in memory instead of their file. The log writer asks
// here where an entry belongs, and so knows nothing of the capture itself.
#pragma once

#include <atomic>
#include <string_view>

#include "port/port.h"

namespace brisolt {

using CaptureFunc = void (*)(Port& port, std::string_view bytes) noexcept;
inline std::atomic<CaptureFunc> captureHook{nullptr}; ///< set before the first capture is switched on

/// Where the port's protocol entries go now; null: to the file.
inline CaptureFunc capturing(const Port& port) noexcept {
    return port.record->captureActive == 1 ? captureHook.load() : nullptr;
}

} // namespace brisolt

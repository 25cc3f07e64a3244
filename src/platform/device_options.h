// What a path may ask of its device. The defaults are those of a path without options.
#pragma once

#include <cstdint>

namespace brisolt {

/// What an open does to an output line.
enum class LineStart : uint8_t { raise, lower, leave };
/// Half duplex: by the kernel's driver, or by the library with RTS.
enum class Rs485Mode : uint8_t { off, driver, rts };
enum class Rs485Resistor : uint8_t { leave, on, off };

struct Rs485Options {
    Rs485Mode mode = Rs485Mode::off;
    bool rtsHigh = true;   ///< the level of RTS while sending
    uint32_t beforeMs = 0; ///< pauses round a block
    uint32_t afterMs = 0;
    bool echo = false; ///< what we send is received too
    Rs485Resistor resistor = Rs485Resistor::leave;
};

struct DeviceOptions {
    static constexpr int32_t forEver = -1;

    LineStart dtr = LineStart::raise;
    LineStart rts = LineStart::raise;
    bool leaveLinesAtClose = false;
    bool exclusive = true;
    bool restore = true;
    bool lowLatency = false;
    bool marks = false;
    int32_t keepSeconds = 0; ///< 0: a device that goes is not looked for
    Rs485Options rs485;
};

} // namespace brisolt

// A device path and what it asks for: PATH?KEY=VALUE&KEY=VALUE.
#pragma once

#include <string>
#include <string_view>

#include "platform/device_options.h"

namespace brisolt {

struct DevicePath {
    std::string name; ///< without the options that are the library's
    DeviceOptions options;
    uint32_t asked = 0; ///< which of them were given: bits of OptionKey
};

/// Which key: each is one bit of `asked`.
enum OptionKey : uint32_t {
    optionDtr = 1u << 0,
    optionRts = 1u << 1,
    optionClose = 1u << 2,
    optionExclusive = 1u << 3,
    optionRestore = 1u << 4,
    optionLowLatency = 1u << 5,
    optionRs485 = 1u << 6,
    optionRs485Rts = 1u << 7,
    optionRs485Before = 1u << 8,
    optionRs485After = 1u << 9,
    optionRs485Echo = 1u << 10,
    optionRs485Termination = 1u << 11,
    optionMarks = 1u << 12,
    optionKeep = 1u << 13,
};

/// Takes the library's options out of the path's query. What it does not know it leaves in the name when
/// `foreignKeys`, for a driver that may; else that fails. False: `error` says which key or value, and what is
/// possible.
bool readDevicePath(std::string_view path, bool foreignKeys, DevicePath& read, std::string& error);
/// The name of the first key in a set of bits.
std::string_view optionName(uint32_t wanted) noexcept;
/// Those of all of them.
std::string optionNames(uint32_t wanted);

} // namespace brisolt

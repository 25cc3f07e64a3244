// What goes wrong on request.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "clock.h"

namespace simulated {

enum class Mishap {
    silence, ///< the command line is lost: nothing is done and nothing answered
    refusal, ///< ERROR, and nothing is done
    slowness ///< it is done and answered later
};

struct Fault {
    Mishap mishap = Mishap::silence;
    /// Concerns command lines with this text behind their AT; letter case and blanks do not count. Empty:
    /// all.
    std::string text = {};
    int times = -1; ///< so often, then no more; below 0: always
    Milliseconds delay = Milliseconds(0);
};

/// Turns up for command lines in the order in which it was added to; the first that fits is the one.
class Faults {
public:
    void add(const Fault& fault);
    void clear() { faults_.clear(); }
    /// The fault that a command line (in capitals, without blanks) meets. It counts as met.
    std::optional<Fault> meet(std::string_view commands);

private:
    std::vector<Fault> faults_;
};

/// Puts a byte of noise behind every so many bytes.
class Noise {
public:
    void setEvery(std::size_t bytes) { every_ = bytes; }
    std::string mixInto(std::string bytes);

private:
    std::size_t every_ = 0; ///< 0: none
    std::size_t sinceLast_ = 0;
    uint32_t state_ = 1; ///< the same noise in every run, so that a failure can be had again
};

} // namespace simulated

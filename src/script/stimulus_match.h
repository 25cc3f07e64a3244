// The bytes that a stimulus call collects in the port's match buffer, and the search for its strings.
//
// A string that was not there before can only end in the bytes that have just come, so each look goes no
// further back than the string is long: the work grows with the bytes, not with their square.
#pragma once

#include <cstdint>
#include <span>

#include "port/port.h"

namespace brisolt {

/// Bytes that never get into the buffer. A NUL that does ends the text that is searched.
struct Dropped {
    bool nul, byte255;
};

class StimulusMatch {
public:
    StimulusMatch(Port& port, std::span<const char* const> awaited, Dropped dropped) noexcept;

    /// Puts bytes behind those that are there, which together must leave room for a terminator, and looks
    /// for the strings. The index of the first in their order that occurs; below 0: none.
    int32_t add(std::span<const uint8_t> bytes) noexcept;
    int32_t length() const noexcept { return length_; }

private:
    bool keeps(uint8_t byte) const noexcept;
    int32_t find() noexcept;

    Port& port_;
    Dropped dropped_;
    std::span<const char* const> awaited_;
    int32_t length_ = 0;
    std::size_t textEnd_ = 0;  ///< the searchable text's
    std::size_t searched_ = 0; ///< no string ends before
};

/// Empties the match buffer.
void clearMatch(Port& port) noexcept;

} // namespace brisolt

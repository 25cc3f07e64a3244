// What the lines mean that a modem says by itself or in answer to a command.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisolt::service {

enum class Result {
    information, ///< anything that is no result: an echo, a caller's number, a protocol
    ok,
    error,
    connected,
    ring,
    ringBack,   ///< it rings at the other end
    proceeding, ///< the other end has answered, the modems find a rate
    failed      ///< a call that has come to nothing, or to an end
};

struct Code {
    std::string_view text;
    bool more; ///< something may follow, a rate for one
    Result result;
    uint32_t cause; ///< of a failed outgoing call, as its disconnection is reported
};

/// The code that a line without its end is, in any letter case and whatever blanks are behind it.
const Code& codeOf(std::string_view line);

} // namespace brisolt::service

// What a dial string makes a modem do.
#pragma once

#include <string>
#include <string_view>

#include "clock.h"
#include "s_registers.h"

namespace simulated {

struct DialPlan {
    std::string number;
    Milliseconds duration{0};    ///< of digits and pauses, from the dial tone on
    bool waitsForTone = false;   ///< W in front: whatever X says
    bool quietAnswer = false;    ///< @: who is called does not have to be a modem
    bool staysCommanded = false; ///< ; at the end
    bool redials = false;        ///< L in front: the last number
    int stored = -1;             ///< S=n: the number of &Zn
};

/// `tone` is how it dials unless the string says otherwise.
DialPlan planDialling(std::string_view text, bool tone, const SRegisters& registers);

} // namespace simulated

// Finds out from the bytes of a call that it is over, on a line that shows no carrier: the modem then says so
// among the data.
//
// The same words may come from the other end. They count when silence follows: a modem that has lost its
// carrier says nothing more. What may become the words is kept back for as long as a modem needs to say
// them, so that they do not reach the program.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "waiting.h"

namespace brisolt::service {

class CarrierText {
public:
    /// Bytes from the modem; appends to `data` what is for the program.
    void take(std::string_view bytes, Clock::time_point now, std::string& data);
    /// When to call settle(); none: not before more bytes have come.
    Until due() const { return due_; }
    /// What the silence means: true, the carrier is lost; else what was kept back goes to `data`.
    bool settle(Clock::time_point now, std::string& data);

    /// The most that take() can append beside the bytes it is given.
    static constexpr std::size_t mostKept = 24;

private:
    bool isBlank(char byte) const;
    bool continues(char byte) const;
    void giveUp(std::string& data);

    std::size_t seen_ = 0; ///< so much of the words is what came last
    std::array<char, mostKept> kept_{};
    std::size_t keptSize_ = 0; ///< of what came last, what the program has not been given
    Until due_;
};

} // namespace brisolt::service

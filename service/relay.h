// A call's bytes on a line that shows no carrier.
//
// Whoever reads such a line reads the end of the call from it, too, so it cannot be the program. It gets a
// terminal of its own, and the bytes of the call are carried between the two.
//
// A program that makes a port of its end discards what is there before it reads. What the other end has said
// by then (it may speak right behind CONNECT) is held back until that is over.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include <poll.h>

#include "carrier_text.h"
#include "descriptor.h"
#include "serial_line.h"
#include "waiting.h"

namespace brisolt::service {

class Relay {
public:
    /// False: the host has no terminal or no memory left.
    bool open(uint32_t speed) noexcept;
    void close() noexcept;
    bool isOpen() const noexcept { return static_cast<bool>(master_); }
    /// The program's end.
    int descriptor() const noexcept { return slave_.get(); }
    /// The program has got its end.
    void handOver() noexcept { advance(Program::comes); }
    /// It has made a port of it, and discards nothing any more.
    void portOpen() noexcept { advance(Program::there); }

    /// Fills in what to poll: the line's and the terminal's entry. Until when to wait.
    Until watch(const SerialLine& line, std::span<pollfd, 2> entries) const noexcept;
    enum class State { talking, carrierLost, deviceGone };
    /// Carries what there is.
    State turn(const SerialLine& line);
    /// Takes from the program alone: true while it has left something that has not gone to the line.
    bool drain(const SerialLine& line);
    /// What a call that is over has left for the program: where to wait for room, -1 nothing is left.
    int leftover() const { return forProgram_.empty() ? -1 : master_.get(); }
    bool deliver();

private:
    enum class Program {
        absent,     ///< it has not even got its end
        comes,      ///< it may be making a port of it
        discarding, ///< it is, or may be
        there
    };
    void advance(Program to) noexcept;
    void meet(Clock::time_point now) noexcept;
    bool fromLine(const SerialLine& line);
    bool toLine(const SerialLine& line);
    bool fromProgram();

    Descriptor master_, slave_;
    CarrierText text_;
    std::string forProgram_, forLine_;
    Program program_ = Program::absent;
    Clock::time_point patience_; ///< how long a program that does not come is waited for
    bool lost_ = false;          ///< the carrier
};

} // namespace brisolt::service

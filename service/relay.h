// A call's bytes on a line that shows no carrier.
//
// Whoever reads such a line reads the end of the call from it, too, so it cannot be the program. It gets a
// terminal of its own, and the bytes of the call are carried between the two.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include <poll.h>

#include "carrier_text.h"
#include "descriptor.h"
#include "serial_line.h"

namespace brisolt::service {

class Relay {
public:
    /// False: the host has no terminal left.
    bool open(uint32_t speed);
    void close() noexcept;
    bool isOpen() const noexcept { return static_cast<bool>(master_); }
    /// The program's end.
    int descriptor() const noexcept { return slave_.get(); }

    /// Fills in what to poll: the line's and the terminal's entry. The most milliseconds to wait, -1: any.
    int watch(const SerialLine& line, std::span<pollfd, 2> entries) const;
    enum class State { talking, carrierLost, deviceGone };
    /// Carries what there is.
    State turn(const SerialLine& line);
    /// Takes from the program alone: true while it has left something that has not gone to the line.
    bool drain(const SerialLine& line);
    /// What a call that is over has left for the program: where to wait for room, -1 nothing is left.
    int leftover() const { return forProgram_.empty() ? -1 : master_.get(); }
    void deliver();

private:
    bool fromLine(const SerialLine& line);
    bool toLine(const SerialLine& line);

    Descriptor master_, slave_;
    CarrierText text_;
    std::string forProgram_, forLine_;
};

} // namespace brisolt::service

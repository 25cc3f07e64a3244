// The serial line between a modem and the program that uses it, seen from the modem.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>

namespace simulated {

class Line {
public:
    Line() = default;
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    virtual ~Line() = default;

    /// What the program opens.
    virtual const std::string& path() const = 0;
    /// The thread that uses the line from now on says so first.
    virtual void enter() {}

    /// Bytes from the program, at most `most`; never waits.
    virtual std::string read(std::size_t most) = 0;
    /// Bytes taken; never waits. With nobody at the other end bytes are taken and gone.
    virtual std::size_t write(std::string_view bytes) = 0;

    /// Whether the program holds DTR up; looked at in every turn, and again when bytes have been read: whoever
    /// sent them was there, also when he has left.
    virtual bool dtr() = 0;
    virtual void setCarrier(bool on) = 0;
    virtual void setRing(bool on) = 0;

    /// Adds what to poll for news of DTR and, if wanted, for bytes or room. Returns the real milliseconds
    /// after which the line wants to be looked at anyway, -1 if it does not.
    virtual int watch(std::vector<pollfd>& entries, bool forBytes, bool forRoom) = 0;
};

/// A pseudo terminal. It has no modem lines: carrier and ring do not show, and the program's DTR is up while
/// anybody has the terminal open and its speed is not 0. It may be opened and closed any number of times. A
/// program that leaves it exclusive (TIOCEXCL) locks everybody but root out of it, as it would on any terminal.
///   link   a symbolic link to it, removed at the end; empty: none. One that a dead modem has left is replaced
/// Throws std::runtime_error: also when the link is that of a modem that runs, or no link to a terminal.
std::unique_ptr<Line> ptyLine(const std::string& link = {});

/// One end of "null-modem:NAME"; the program opens the other, at any rate (the modem adapts to it). DTR, ring
/// and carrier are lines there. A null modem crosses one line to two: DSR follows carrier. The modem holds
/// the program off by CTS and lets itself be held off by RTS whatever &K says. `pollRealMs` is how often DTR
/// is looked at, which nothing tells about. Throws std::runtime_error.
std::unique_ptr<Line> nullModemLine(const std::string& name, int pollRealMs = 10);

} // namespace simulated

// The symbolic link by which a modem's terminal is found under a name that stays.
#pragma once

#include <filesystem>
#include <string>

#include "descriptor.h"

namespace simulated {

/// Holds the name for its modem from its making to its end. The hold goes with the process however that ends,
/// so a link whose name nobody holds was left by a modem that is dead.
class TerminalLink {
public:
    /// Takes the name; an empty path is no link. Throws std::runtime_error when a modem that runs has it, or
    /// when there is something that is no link to a terminal.
    explicit TerminalLink(std::filesystem::path path);
    TerminalLink(const TerminalLink&) = delete;
    TerminalLink& operator=(const TerminalLink&) = delete;
    ~TerminalLink();

    /// In one step, even if somebody follows it meanwhile. Throws std::runtime_error.
    void pointAt(const std::string& terminal);

private:
    std::filesystem::path path_;
    std::string terminal_;
    Descriptor hold_;
};

} // namespace simulated

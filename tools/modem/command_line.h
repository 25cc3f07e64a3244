// From the characters a program sends in command mode to the commands in them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "s_registers.h"

namespace simulated {

/// Collects characters into command lines.
class CommandLine {
public:
    static constexpr std::size_t longest = 255; ///< characters behind the AT

    /// Takes a character; `echo` gets what a modem that echoes sends back. True when a line is complete.
    bool take(char character, const SRegisters& registers, std::string& echo);

    /// The last complete line behind its AT, in capitals and without blanks. It stays for an A/.
    const std::string& commands() const { return commands_; }
    bool tooLong() const { return tooLong_; }
    /// Whether a line has been begun.
    bool begun() const { return stage_ != Stage::nothing; }
    void forget() { stage_ = Stage::nothing; }

private:
    enum class Stage { nothing, gotA, inside };

    Stage stage_ = Stage::nothing;
    std::string typed_;
    std::string commands_;
    bool tooLong_ = false;
};

/// One command of a line: its name ("E", "&C", "S", "D", "+IFC", "=" and "?" for the register named last) and
/// what follows.
struct Command {
    std::string name;
    std::optional<int> number;
    std::optional<int> assigned; ///< S7=v, =v
    bool query = false;          ///< S7?, ?, +IFC?
    std::string text;            ///< of D: what to dial; of a plus command: what is behind the =
};

/// Takes the next command off a line. Nothing when the line goes on with no command.
std::optional<Command> nextCommand(std::string_view& line);

} // namespace simulated

#include "command_line.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace simulated {

namespace {

char capital(char character) {
    return static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
}

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// In capitals, without blanks and without what else is no printing character.
std::string plain(std::string_view typed) {
    std::string result;
    for (const char character : typed)
        if (character > ' ' && character != 127)
            result += capital(character);
    return result;
}

std::optional<int> takeNumber(std::string_view& line) {
    if (line.empty() || !isDigit(line.front()))
        return std::nullopt;
    constexpr int tooMuch = 99999;
    int number = 0;
    for (; !line.empty() && isDigit(line.front()); line.remove_prefix(1))
        number = std::min(number * 10 + (line.front() - '0'), tooMuch);
    return number;
}

bool takeCharacter(std::string_view& line, char wanted) {
    if (!line.starts_with(wanted))
        return false;
    line.remove_prefix(1);
    return true;
}

/// Behind S7: =v, or ?, or nothing.
void takeRegisterPart(std::string_view& line, Command& command) {
    if (takeCharacter(line, '='))
        command.assigned = takeNumber(line).value_or(0);
    else
        command.query = takeCharacter(line, '?');
}

/// A plus command goes as far as a semicolon.
void takeExtended(std::string_view& line, Command& command) {
    std::string_view part = line.substr(0, line.find(';'));
    line.remove_prefix(std::min(line.size(), part.size() + 1));
    const std::size_t end = part.find_first_of("=?");
    command.name += part.substr(0, end);
    if (end == std::string_view::npos)
        return;
    part.remove_prefix(end);
    if (takeCharacter(part, '='))
        command.text = part;
    else
        command.query = true;
}

void takeDialString(std::string_view& line, Command& command) {
    const std::size_t semicolon = line.find(';');
    const std::size_t end = semicolon == std::string_view::npos ? line.size() : semicolon + 1;
    command.text = line.substr(0, end);
    line.remove_prefix(end);
}

} // namespace

bool CommandLine::take(char character, const SRegisters& registers, std::string& echo) {
    if (stage_ != Stage::inside) {
        echo += character;
        const char letter = capital(character);
        if (stage_ == Stage::gotA && letter == '/') {
            stage_ = Stage::nothing;
            return true;
        }
        if (stage_ == Stage::gotA && letter == 'T') {
            stage_ = Stage::inside;
            typed_.clear();
            tooLong_ = false;
            return false;
        }
        stage_ = letter == 'A' ? Stage::gotA : Stage::nothing;
        return false;
    }

    if (character == registers.character(endCharacter)) {
        echo += character;
        stage_ = Stage::nothing;
        commands_ = plain(typed_);
        return true;
    }
    if (character == registers.character(backspaceCharacter)) {
        // The AT itself cannot be taken back.
        if (!typed_.empty()) {
            typed_.pop_back();
            echo += std::string{character, ' ', character};
        }
        return false;
    }
    echo += character;
    if (typed_.size() >= longest)
        tooLong_ = true;
    else
        typed_ += character;
    return false;
}

std::optional<Command> nextCommand(std::string_view& line) {
    while (takeCharacter(line, ';')) {
    }
    if (line.empty())
        return std::nullopt;
    constexpr std::string_view families = "&%\\";
    const bool two = families.find(line.front()) != std::string_view::npos && line.size() > 1;
    Command command;
    command.name = std::string(line.substr(0, two ? 2 : 1));
    line.remove_prefix(command.name.size());
    if (command.name == "+")
        takeExtended(line, command);
    else if (command.name == "D")
        takeDialString(line, command);
    else if (command.name == "=")
        command.assigned = takeNumber(line).value_or(0);
    else if (command.name == "?")
        command.query = true;
    else
        command.number = takeNumber(line);
    if (command.name == "S")
        takeRegisterPart(line, command);
    // AT&Z2=5551234 stores a number, all the rest of the line.
    if (command.name == "&Z" && takeCharacter(line, '='))
        command.text = std::exchange(line, {});
    return command;
}

} // namespace simulated

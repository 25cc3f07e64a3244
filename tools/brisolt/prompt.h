// One line asked of the user while his terminal is raw.
#pragma once

#include <optional>
#include <string>
#include <string_view>

class Prompt {
public:
    /// Writes the question to standard error.
    explicit Prompt(std::string_view question);

    enum class State { open, answered, givenUp };
    /// A key: a character, backspace, Ctrl-U, Enter, or Escape and Ctrl-C to give up.
    State key(char byte);
    const std::string& answer() const { return answer_; }

private:
    std::string answer_;
};

#include "prompt.h"

#include <unistd.h>

#include "output.h"

namespace {

constexpr char backspace = '\b', del = 0x7f, escape = 0x1b, control_c = 0x03, control_u = 0x15;

void tell(std::string_view text) {
    writeAll(STDERR_FILENO, text, "standard error");
}

bool continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) == 0x80;
}

} // namespace

Prompt::Prompt(std::string_view question) {
    tell("\r" + std::string(question) + ": ");
}

Prompt::State Prompt::key(char byte) {
    if (byte == '\r' || byte == '\n') {
        tell("\r\n");
        return State::answered;
    }
    if (byte == escape || byte == control_c) {
        tell("\r\n");
        return State::givenUp;
    }
    if (byte == backspace || byte == del || byte == control_u) {
        while (!answer_.empty()) {
            // All bytes of one character take one column together.
            const bool whole = !continuation(answer_.back());
            answer_.pop_back();
            if (!whole)
                continue;
            tell("\b \b");
            if (byte != control_u)
                break;
        }
    } else if (static_cast<unsigned char>(byte) >= ' ') {
        answer_ += byte;
        tell(std::string(1, byte));
    }
    return State::open;
}

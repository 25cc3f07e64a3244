#include "display.h"

#include <array>
#include <cstdio>
#include <utility>

#include <unistd.h>

#include "output.h"

namespace {

constexpr std::size_t bytesPerRow = 16;
// A raw terminal does not go back to the first column by itself; for a pipe it does no harm to a line of hex.
constexpr std::string_view lineEnd = "\r\n";

} // namespace

void Display::show(std::string_view bytes) {
    if (held_)
        waiting_ += bytes;
    else
        writeAll(STDOUT_FILENO, formatted(bytes), "standard output");
}

void Display::hold(bool on) {
    held_ = on;
    if (!on)
        show(std::exchange(waiting_, {}));
}

std::string Display::formatted(std::string_view bytes) {
    if (!bytes.empty() && !hex && stamps == Stamps::none) {
        lineStart_ = bytes.back() == '\n' || bytes.back() == '\r';
        return std::string(bytes);
    }
    std::string text;
    for (const char byte : bytes) {
        // A stamp belongs to a line that has something in it, not to the line feed behind a carriage return.
        if (lineStart_ && stamps != Stamps::none && (hex || (byte != '\r' && byte != '\n')))
            text += stamp();
        if (hex)
            addHex(text, byte);
        else {
            text += byte;
            lineStart_ = byte == '\n' || (byte == '\r' && lineStart_);
        }
    }
    return text;
}

void Display::addHex(std::string& text, char byte) {
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x ", unsigned{static_cast<unsigned char>(byte)});
    text += digits.data();
    row_ += byte;
    lineStart_ = false;
    if (row_.size() == bytesPerRow)
        finishHex(text);
}

void Display::finishHex(std::string& text) {
    if (row_.empty())
        return;
    text.append((bytesPerRow - row_.size()) * 3, ' ');
    text += " |";
    for (const char byte : row_)
        text += byte >= ' ' && byte <= '~' ? byte : '.';
    text += '|';
    text += lineEnd;
    row_.clear();
    lineStart_ = true;
}

void Display::endLine(bool always) {
    std::string text;
    finishHex(text);
    if (always && !lineStart_) {
        text += lineEnd;
        lineStart_ = true;
    }
    writeAll(STDOUT_FILENO, text, "standard output");
}

std::string Display::stamp() {
    const auto now = Clock::now();
    const auto since = now - (stamps == Stamps::sinceStart ? start_ : last_);
    last_ = now;
    if (stamps == Stamps::timeOfDay)
        return "[" + timeOfDay() + "] ";
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "[%c%9.3f] ", stamps == Stamps::sinceStart ? ' ' : '+',
                  std::chrono::duration<double>(since).count());
    return text.data();
}

Stamps next(Stamps stamps) {
    return stamps == Stamps::sinceLast ? Stamps::none : static_cast<Stamps>(static_cast<int>(stamps) + 1);
}

std::string nameOf(Stamps stamps) {
    constexpr std::array<std::string_view, 4> names{"off", "time of day", "since the start",
                                                    "since the last"};
    return std::string(names[static_cast<std::size_t>(stamps)]);
}

#include "tap_view.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <unistd.h>

#include "output.h"

namespace {

// A line that is not full is shown when nothing has followed for so long.
constexpr auto quiet = std::chrono::milliseconds(50);
constexpr std::size_t hexRow = 16, textRow = 64;

std::string hexText(std::string_view bytes) {
    std::string digits, characters;
    for (const char byte : bytes) {
        std::array<char, 4> text{};
        std::snprintf(text.data(), text.size(), "%02x ", unsigned{static_cast<unsigned char>(byte)});
        digits += text.data();
        characters += byte >= ' ' && byte <= '~' ? byte : '.';
    }
    return digits + std::string((hexRow - bytes.size()) * 3, ' ') + " |" + characters + "|";
}

std::string plainText(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        std::array<char, 8> code{};
        if (byte == '\r')
            text += "\\r";
        else if (byte == '\n')
            text += "\\n";
        else if (byte == '\\')
            text += "\\\\";
        else if (byte >= ' ' && byte <= '~')
            text += byte;
        else {
            std::snprintf(code.data(), code.size(), "\\x%02x", unsigned{static_cast<unsigned char>(byte)});
            text += code.data();
        }
    }
    return text;
}

} // namespace

void TapView::add(bool transmitted, std::string_view bytes) {
    if (transmitted != transmitted_)
        flush();
    transmitted_ = transmitted;
    for (const char byte : bytes) {
        if (row_.empty())
            time_ = timeOfDay();
        row_ += byte;
        if (row_.size() >= (hex_ ? hexRow : textRow) || (!hex_ && byte == '\n'))
            print();
    }
    last_ = Clock::now();
    std::fflush(stdout);
}

void TapView::tell(const std::string& text) {
    flush();
    std::printf("%s = %s\n", timeOfDay().c_str(), printable(text).c_str());
    std::fflush(stdout);
}

int TapView::due() const {
    if (row_.empty())
        return -1;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(last_ + quiet - Clock::now()).count();
    return static_cast<int>(std::max<int64_t>(left, 0));
}

void TapView::flush() {
    if (!row_.empty())
        print();
    std::fflush(stdout);
}

void TapView::print() {
    const bool colour = inColour(STDOUT_FILENO);
    const char* const begin = !colour ? "" : transmitted_ ? "\033[32m" : "\033[36m";
    std::printf("%s%s %c %s%s\n", begin, time_.c_str(), transmitted_ ? '>' : '<',
                (hex_ ? hexText(row_) : plainText(row_)).c_str(), colour ? "\033[0m" : "");
    row_.clear();
}

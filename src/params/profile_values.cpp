#include "params/profile_values.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "platform/profile.h"

namespace brisolt::profile {

namespace {

/// The number at the start of a text, `limit` when it is larger; 0 without digits.
uint32_t digits(std::string_view text, int base, uint32_t limit) noexcept {
    uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error == std::errc::result_out_of_range)
        return limit;
    return static_cast<uint32_t>(std::min<uint64_t>(value, limit));
}

/// Takes blanks and a sign off the start. Whether it was a minus.
bool takeSign(std::string_view& text) noexcept {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    bool minus = text.starts_with('-');
    if (minus || text.starts_with('+'))
        text.remove_prefix(1);
    return minus;
}

int32_t readInteger(std::string_view text) noexcept {
    constexpr auto most = static_cast<uint32_t>(std::numeric_limits<int32_t>::max());
    bool minus = takeSign(text);
    uint32_t value = digits(text, 10, minus ? most + 1 : most);
    return static_cast<int32_t>(minus ? 0 - value : value);
}

uint32_t readPrefixed(std::string_view text) noexcept {
    constexpr uint32_t most = std::numeric_limits<uint32_t>::max();
    bool minus = takeSign(text);
    bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal)
        text.remove_prefix(2);
    int base = hexadecimal ? 16 : text.starts_with('0') ? 8 : 10;
    uint32_t value = digits(text, base, most);
    return minus && value != most ? 0 - value : value;
}

int32_t readBoolean(std::string_view text) noexcept {
    auto isOneOf = [text](std::initializer_list<std::string_view> words) {
        return std::any_of(words.begin(), words.end(),
                           [text](auto word) { return sameWithoutCase(text, word); });
    };
    if (isOneOf({"1", "true", "on", "yes"}))
        return 1;
    return isOneOf({"0", "false", "off", "no"}) ? 0 : noBoolean;
}

/// The character that a letter stands for behind a backslash.
uint8_t escaped(char letter) noexcept {
    switch (letter) {
    case 'a': return 7;
    case 'b': return 8;
    case 't': return 9;
    case 'n': return 10;
    case 'v': return 11;
    case 'f': return 12;
    case 'r': return 13;
    default: return static_cast<uint8_t>(letter);
    }
}

uint8_t readCharacter(std::string_view text) noexcept {
    if (text.empty())
        return 0;
    char first = text.front();
    if (first >= '0' && first <= '9') {
        uint32_t value = readPrefixed(text);
        return static_cast<uint8_t>(value > 255 ? 0 : value);
    }
    bool pair = text.size() == 2;
    if (first == '^')
        return pair && text[1] >= 64 && text[1] <= 95 ? static_cast<uint8_t>(text[1] - 64) : 0;
    if (first == '\\')
        return pair ? escaped(text[1]) : 0;
    return text.size() == 1 ? static_cast<uint8_t>(first) : 0;
}

int32_t readText(Encoding encoding, std::string_view text) noexcept {
    switch (encoding) {
    case Encoding::boolean: return readBoolean(text);
    case Encoding::integer: return readInteger(text);
    case Encoding::prefixed: return static_cast<int32_t>(readPrefixed(text));
    case Encoding::character: break;
    }
    return readCharacter(text);
}

} // namespace

int32_t decode(Encoding encoding, std::optional<std::string_view> text, int32_t absent) {
    return text ? readText(encoding, *text) : readText(encoding, encode(encoding, absent));
}

std::string encode(Encoding encoding, int32_t value) {
    if (encoding == Encoding::boolean)
        return value != 0 ? "1" : "0";
    if (encoding != Encoding::character)
        return std::to_string(value);
    char text[8] = "0x";
    char* end = std::to_chars(text + 2, text + sizeof text, value & 0xFF, 16).ptr;
    return {text, end};
}

} // namespace brisolt::profile

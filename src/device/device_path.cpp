#include "device/device_path.h"

#include <charconv>
#include <iterator>

namespace brisolt {

namespace {

/// A value by its place among a key's words.
struct Choice {
    std::string_view words[3];
    void (*set)(DeviceOptions& options, int32_t word);
};
struct Number {
    int32_t least, most;
    void (*set)(DeviceOptions& options, int32_t value);
};

struct Key {
    std::string_view name;
    OptionKey bit;
    Choice choice;
    Number number{0, -1, nullptr}; ///< also possible when set
};

LineStart lineStart(int32_t word) {
    return static_cast<LineStart>(word);
}

constexpr int32_t longestPause = 10000;  ///< milliseconds
constexpr int32_t longestKeep = 1000000; ///< seconds

const Key keys[] = {
    {"dtr", optionDtr, {{"on", "off", "leave"}, [](auto& o, int32_t w) { o.dtr = lineStart(w); }}},
    {"rts", optionRts, {{"on", "off", "leave"}, [](auto& o, int32_t w) { o.rts = lineStart(w); }}},
    {"close", optionClose, {{"lower", "leave"}, [](auto& o, int32_t w) { o.leaveLinesAtClose = w == 1; }}},
    {"exclusive", optionExclusive, {{"yes", "no"}, [](auto& o, int32_t w) { o.exclusive = w == 0; }}},
    {"restore", optionRestore, {{"yes", "no"}, [](auto& o, int32_t w) { o.restore = w == 0; }}},
    {"low-latency", optionLowLatency, {{"leave", "on"}, [](auto& o, int32_t w) { o.lowLatency = w == 1; }}},
    {"rs485",
     optionRs485,
     {{"off", "driver", "rts"}, [](auto& o, int32_t w) { o.rs485.mode = static_cast<Rs485Mode>(w); }}},
    {"rs485-rts", optionRs485Rts, {{"high", "low"}, [](auto& o, int32_t w) { o.rs485.rtsHigh = w == 0; }}},
    {"rs485-before",
     optionRs485Before,
     {},
     {0, longestPause, [](auto& o, int32_t v) { o.rs485.beforeMs = static_cast<uint32_t>(v); }}},
    {"rs485-after",
     optionRs485After,
     {},
     {0, longestPause, [](auto& o, int32_t v) { o.rs485.afterMs = static_cast<uint32_t>(v); }}},
    {"rs485-echo", optionRs485Echo, {{"no", "yes"}, [](auto& o, int32_t w) { o.rs485.echo = w == 1; }}},
    {"rs485-termination",
     optionRs485Termination,
     {{"leave", "on", "off"}, [](auto& o, int32_t w) { o.rs485.resistor = static_cast<Rs485Resistor>(w); }}},
    {"marks", optionMarks, {{"no", "yes"}, [](auto& o, int32_t w) { o.marks = w == 1; }}},
    {"keep",
     optionKeep,
     {{"no", "yes"}, [](auto& o, int32_t w) { o.keepSeconds = w == 1 ? DeviceOptions::forEver : 0; }},
     {1, longestKeep, [](auto& o, int32_t v) { o.keepSeconds = v; }}},
};

std::string possibleValues(const Key& key) {
    std::string text;
    for (std::string_view word : key.choice.words)
        if (!word.empty())
            text.append(text.empty() ? "" : ", ").append(word);
    if (key.number.set != nullptr)
        text.append(text.empty() ? "" : ", ")
            .append(std::to_string(key.number.least) + " to " + std::to_string(key.number.most));
    return text;
}

const Key* find(std::string_view name) {
    for (const Key& key : keys)
        if (key.name == name)
            return &key;
    return nullptr;
}

bool setNumber(const Number& number, std::string_view text, DeviceOptions& options) {
    int32_t value = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (number.set == nullptr || failed != std::errc() || end != text.data() + text.size() ||
        value < number.least || value > number.most)
        return false;
    number.set(options, value);
    return true;
}

bool setValue(const Key& key, std::string_view value, DeviceOptions& options) {
    for (std::size_t word = 0; word < std::size(key.choice.words); ++word)
        if (!value.empty() && key.choice.words[word] == value) {
            key.choice.set(options, static_cast<int32_t>(word));
            return true;
        }
    return setNumber(key.number, value, options);
}

/// One KEY=VALUE. What is not the library's goes to `others`.
bool readOption(std::string_view option, DevicePath& read, std::string& others, std::string& error) {
    const std::size_t equals = option.find('=');
    const std::string_view name = option.substr(0, equals);
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : option.substr(equals + 1);
    const Key* key = find(name);
    if (key == nullptr) {
        others.append(others.empty() ? "" : "&").append(option);
        return true;
    }
    if ((read.asked & key->bit) != 0) {
        error = "the option " + std::string(name) + " is given twice";
        return false;
    }
    read.asked |= key->bit;
    if (setValue(*key, value, read.options))
        return true;
    error = "the option " + std::string(name) + " cannot be \"" + std::string(value) +
            "\"; possible: " + possibleValues(*key);
    return false;
}

/// An option that means something together with another alone. What it needs; empty: nothing.
std::string missing(const Rs485Options& bus) {
    const Rs485Options defaults;
    const auto needs = [](const char* name, const char* what) {
        return "the option " + std::string(name) + " needs " + what;
    };
    constexpr const char* either = "rs485=driver or rs485=rts";
    const bool off = bus.mode == Rs485Mode::off;
    const bool byDriver = bus.mode == Rs485Mode::driver;
    if (!byDriver && bus.echo != defaults.echo)
        return needs("rs485-echo", "rs485=driver");
    if (!byDriver && bus.resistor != defaults.resistor)
        return needs("rs485-termination", "rs485=driver");
    if (off && bus.rtsHigh != defaults.rtsHigh)
        return needs("rs485-rts", either);
    if (off && bus.beforeMs != defaults.beforeMs)
        return needs("rs485-before", either);
    return off && bus.afterMs != defaults.afterMs ? needs("rs485-after", either) : std::string();
}

} // namespace

bool readDevicePath(std::string_view path, bool foreignKeys, DevicePath& read, std::string& error) {
    const std::size_t mark = path.find('?');
    read = {};
    read.name = path.substr(0, mark);
    if (mark == std::string_view::npos)
        return true;
    std::string others;
    for (std::string_view left = path.substr(mark + 1); !left.empty();) {
        const std::size_t end = left.find('&');
        const std::string_view option = left.substr(0, end);
        left = end == std::string_view::npos ? std::string_view() : left.substr(end + 1);
        if (option.empty() && !left.empty()) {
            error = "an empty option";
            return false;
        }
        if (!readOption(option, read, others, error))
            return false;
    }
    error = missing(read.options.rs485);
    if (others.empty() || !error.empty())
        return error.empty();
    if (!foreignKeys) {
        error =
            "unknown option \"" + others.substr(0, others.find('&')) + "\"; possible: " + optionNames(~0U);
        return false;
    }
    read.name.append("?").append(others);
    return true;
}

std::string optionNames(uint32_t wanted) {
    std::string text;
    for (const Key& key : keys)
        if ((wanted & key.bit) != 0)
            text.append(text.empty() ? "" : ", ").append(key.name);
    return text;
}

std::string_view optionName(uint32_t wanted) noexcept {
    for (const Key& key : keys)
        if ((wanted & key.bit) != 0)
            return key.name;
    return {};
}

} // namespace brisolt

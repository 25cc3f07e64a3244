#include "arguments.h"

#include <cctype>
#include <charconv>
#include <limits>
#include <system_error>

#include <unistd.h>

#include <brisolt.h>

#include "failure.h"

namespace {

constexpr std::size_t nameLimit = 260; // of the library, for devices and traces

template <typename Number> bool parse(std::string_view text, Number& value) {
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && stop == end;
}

} // namespace

std::string LineOptions::framing() const {
    const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(parity.front())));
    return std::to_string(dataBits) + letter + stopBits;
}

int32_t LineOptions::flowCode() const {
    if (flow == "rtscts")
        return COM_FLOW_RTS_CTS;
    if (flow == "xonxoff")
        return COM_FLOW_XON_XOFF;
    return flow == "dtrdsr" ? COM_FLOW_DTR_DSR : COM_FLOW_NONE;
}

void addDevice(CLI::App& app, LineOptions& options) {
    app.add_option("device", options.device,
                   "Device file, usb:VID:PID or SCHEME:REST, with ?KEY=VALUE options")
        ->required()
        ->check(name());
}

void addLine(CLI::App& app, LineOptions& options, bool shortNames) {
    const auto names = [shortNames](const std::string& both) { return shortNames ? both : both.substr(3); };
    constexpr int32_t highest = std::numeric_limits<int32_t>::max();
    app.add_option(names("-b,--baud"), options.rate, "Bits per second")
        ->check(wholeNumber(1, highest))
        ->type_name("RATE")
        ->capture_default_str();
    app.add_option(names("-d,--data"), options.dataBits, "Data bits, 4 to 8")
        ->check(wholeNumber(4, 8))
        ->type_name("BITS")
        ->capture_default_str();
    app.add_option(names("-p,--parity"), options.parity, "none, odd, even, mark or space (or n, o, e, m, s)")
        ->transform(oneOf({"none|n", "odd|o", "even|e", "mark|m", "space|s"}))
        ->type_name("PARITY")
        ->capture_default_str();
    app.add_option(names("-s,--stop"), options.stopBits, "Stop bits: 1, 1.5 or 2")
        ->transform(oneOf({"1", "1.5", "2"}))
        ->type_name("BITS")
        ->capture_default_str();
    app.add_option(names("-f,--flow"), options.flow,
                   "Flow control: none, rtscts, xonxoff or dtrdsr (or n, h, x)")
        ->transform(oneOf({"none|n", "rtscts|h|hard", "xonxoff|x|soft", "dtrdsr"}))
        ->type_name("FLOW")
        ->capture_default_str();
}

/// The parser's own range takes a number that is none for one that is too small, and writes out every digit of
/// the highest one it knows.
CLI::Validator wholeNumber(int32_t least, int32_t most) {
    const auto refusal = [least, most](const std::string& text) -> std::string {
        int32_t value = 0;
        if (parse(text, value) && value >= least && value <= most)
            return {};
        return "\"" + text + "\" is no number from " + std::to_string(least) + " to " + std::to_string(most);
    };
    return {refusal, ""};
}

CLI::Validator seconds() {
    const auto refusal = [](const std::string& text) -> std::string {
        double value = 0;
        if (parse(text, value) && value > 0 && value <= 1e6)
            return {};
        return "\"" + text + "\" is no number of seconds above 0, up to 1000000";
    };
    return {refusal, ""};
}

CLI::Validator name() {
    const auto refusal = [](const std::string& text) -> std::string {
        if (text.empty())
            return "the name is empty";
        return text.size() < nameLimit
                   ? ""
                   : "the name is longer than " + std::to_string(nameLimit - 1) + " bytes";
    };
    return {refusal, ""};
}

CLI::Validator oneOf(const std::vector<std::string>& words) {
    const auto choose = [words](std::string& text) -> std::string {
        std::string known;
        for (const std::string& word : words) {
            const std::string chosen = word.substr(0, word.find('|'));
            if (!text.empty() && ("|" + word + "|").find("|" + text + "|") != std::string::npos &&
                text.find('|') == std::string::npos) {
                text = chosen;
                return {};
            }
            known += (known.empty() ? "" : ", ") + chosen;
        }
        return "\"" + text + "\" is none of " + known;
    };
    return {choose, ""};
}

std::string withOption(const std::string& device, std::string_view option) {
    const std::size_t mark = device.find('?');
    if (mark == std::string::npos || access(device.c_str(), F_OK) == 0)
        return device + "?" + std::string(option);
    const std::string key(option.substr(0, option.find('=') + 1));
    const std::string options = "&" + device.substr(mark + 1);
    return options.find("&" + key) != std::string::npos ? device : device + "&" + std::string(option);
}

std::string unescaped(std::string_view text) {
    constexpr std::string_view letters = "rnte0\\", bytes("\r\n\t\x1b\0\\", 6);
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        const std::string_view rest = text.substr(i + 1);
        const std::size_t known = rest.empty() ? std::string_view::npos : letters.find(rest.front());
        unsigned value = 0;
        if (known != std::string_view::npos) {
            result += bytes[known];
            i += 1;
        } else if (rest.size() >= 3 && rest.front() == 'x' &&
                   std::from_chars(&rest[1], &rest[1] + 2, value, 16).ptr == &rest[1] + 2) {
            result += static_cast<char>(value);
            i += 3;
        } else {
            throw Failure("\"" + std::string(text) + "\": \\" + std::string(rest.substr(0, 1)) +
                              " is no escape; there are \\r \\n \\t \\e \\0 \\\\ and \\xHH",
                          exitUsage);
        }
    }
    return result;
}

std::string hexBytes(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        if (text.front() == ' ' || text.front() == ':' || text.front() == ',') {
            text.remove_prefix(1);
            continue;
        }
        unsigned value = 0;
        const std::string_view digits = text.substr(0, 2);
        const char* const end = digits.data() + digits.size();
        if (digits.size() < 2 || std::from_chars(digits.data(), end, value, 16).ptr != end)
            return {};
        result += static_cast<char>(value);
        text.remove_prefix(2);
    }
    return result;
}

char keyByte(const std::string& key) {
    std::string_view text = key;
    bool control = false;
    for (const std::string_view prefix : {"ctrl-", "Ctrl-", "^"}) {
        if (text.size() == prefix.size() + 1 && text.substr(0, prefix.size()) == prefix) {
            text.remove_prefix(prefix.size());
            control = true;
            break;
        }
    }
    const int upper = text.size() == 1 ? std::toupper(static_cast<unsigned char>(text.front())) : 0;
    if (text.size() != 1 || (control && (upper < '@' || upper > '_')))
        throw Failure("\"" + key + "\" is no key; write ctrl-x, ^x or one character", exitUsage);
    return control ? static_cast<char>(upper & 0x1f) : text.front();
}

std::string keyName(char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return value < 0x20 ? std::string("Ctrl-") + static_cast<char>(value + '@') : std::string(1, byte);
}

std::string footer(std::string_view keys, std::initializer_list<std::string_view> examples) {
    std::string text(keys);
    text += text.empty() ? "Examples:" : "\n\nExamples:";
    for (const std::string_view example : examples)
        text += "\n  " + std::string(example);
    return text + "\n\nExit codes: 0 done, 1 failed, 2 usage, 3 device gone, 4 time over, 130 interrupted.";
}

#include "device/network/network_path.h"

#include <charconv>

namespace brisolt::network {

namespace {

enum class For : uint8_t { all, telnet, tls };

struct Key {
    std::string_view name;
    For kinds;
    uint32_t Path::*number;
    std::string Path::*text;
};
constexpr Key keys[] = {
    {"connect", For::all, &Path::connectMs, nullptr},
    {"answer", For::telnet, &Path::answerMs, nullptr},
    {"ca", For::tls, nullptr, &Path::ca},
    {"cert", For::tls, nullptr, &Path::cert},
    {"key", For::tls, nullptr, &Path::key},
    {"name", For::tls, nullptr, &Path::name},
    {"verify", For::tls, nullptr, nullptr},
};

bool possible(const Key& key, const Kind& kind) noexcept {
    return key.kinds == For::all || (key.kinds == For::telnet && kind.telnet) ||
           (key.kinds == For::tls && kind.tls);
}

std::string possibleKeys(const Kind& kind) {
    std::string text;
    for (const Key& key : keys)
        if (possible(key, kind))
            text.append(key.name).append(", ");
    return text + "and those of every port";
}

bool readNumber(std::string_view text, uint32_t most, uint32_t& number) noexcept {
    uint32_t value = 0;
    const auto [end, failed] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failed != std::errc() || end != text.data() + text.size() || value < 1 || value > most)
        return false;
    number = value;
    return true;
}

/// Empty: the value is one of the key's. Else what is possible.
std::string_view setValue(const Key& key, std::string_view value, Path& path) {
    constexpr uint32_t longest = 600'000; // milliseconds
    if (key.number != nullptr)
        return readNumber(value, longest, path.*key.number) ? "" : "1 to 600000 milliseconds";
    if (key.text != nullptr) {
        path.*key.text = value;
        return value.empty() ? "a text" : "";
    }
    path.verify = value != "no";
    return value == "yes" || value == "no" ? "" : "yes, no";
}

bool readOption(const Kind& kind, std::string_view option, Path& path, uint32_t& given, std::string& error) {
    const std::size_t equals = option.find('=');
    const std::string_view name = option.substr(0, equals);
    const std::string_view value =
        equals == std::string_view::npos ? std::string_view() : option.substr(equals + 1);
    uint32_t bit = 1;
    for (const Key& key : keys) {
        if (key.name == name && possible(key, kind)) {
            if ((given & bit) != 0) {
                error = "the option " + std::string(name) + " is given twice";
                return false;
            }
            given |= bit;
            const std::string_view wanted = setValue(key, value, path);
            if (!wanted.empty())
                error = "the option " + std::string(name) + " cannot be \"" + std::string(value) +
                        "\"; possible: " + std::string(wanted);
            return wanted.empty();
        }
        bit <<= 1;
    }
    error = "unknown option \"" + std::string(option) + "\"; possible: " + possibleKeys(kind);
    return false;
}

/// HOST:PORT, an IPv6 address in brackets.
bool readAddress(std::string_view text, Path& path, std::string& error) {
    const std::size_t colon = text.rfind(':');
    uint32_t port = 0;
    if (colon == std::string_view::npos || !readNumber(text.substr(colon + 1), 65535, port)) {
        error = "it is HOST:PORT, the port a number from 1 to 65535";
        return false;
    }
    std::string_view host = text.substr(0, colon);
    const bool brackets = host.size() > 2 && host.front() == '[' && host.back() == ']';
    if (brackets)
        host = host.substr(1, host.size() - 2);
    if (host.empty() || (!brackets && host.find_first_of(":[]") != std::string_view::npos)) {
        error = host.empty() ? "no host is named" : "an IPv6 address stands in brackets: [ADDRESS]:PORT";
        return false;
    }
    path.host = host;
    path.port = std::to_string(port);
    return true;
}

} // namespace

bool readPath(const Kind& kind, std::string_view text, Path& path, std::string& error) {
    path = {};
    path.whole = text;
    text.remove_prefix(kind.scheme.size());
    const std::size_t mark = text.find('?');
    if (!readAddress(text.substr(0, mark), path, error))
        return false;
    uint32_t given = 0;
    std::string_view left = mark == std::string_view::npos ? std::string_view() : text.substr(mark + 1);
    while (!left.empty()) {
        const std::size_t end = left.find('&');
        if (!readOption(kind, left.substr(0, end), path, given, error))
            return false;
        left = end == std::string_view::npos ? std::string_view() : left.substr(end + 1);
    }
    if (path.name.empty())
        path.name = path.host;
    if (path.key.empty() != path.cert.empty()) {
        error = "the options cert and key belong together";
        return false;
    }
    return true;
}

} // namespace brisolt::network

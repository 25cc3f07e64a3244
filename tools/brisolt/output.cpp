#include "output.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <cwctype>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "failure.h"

namespace {

/// The next character of the text and its length in bytes; length 0 when there is no valid one.
std::size_t nextCharacter(std::string_view text, wchar_t& character) {
    std::mbstate_t state{};
    const std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    return length >= 1 && length <= text.size() ? length : 0;
}

} // namespace

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        wchar_t character = 0;
        std::size_t length = nextCharacter(text, character);
        if (length > 0 && (character == L'\n' || std::iswprint(static_cast<std::wint_t>(character)) != 0)) {
            result.append(text.substr(0, length));
        } else {
            result += '?';
            length = 1;
        }
        text.remove_prefix(length);
    }
    return result;
}

std::string jsonString(std::string_view text) {
    std::string result = "\"";
    while (!text.empty()) {
        wchar_t character = 0;
        const std::size_t length = nextCharacter(text, character);
        const auto byte = static_cast<unsigned char>(text.front());
        if (byte == '"' || byte == '\\') {
            result += {'\\', text.front()};
        } else if (byte < 0x20 || byte == 0x7f) {
            std::array<char, 8> code{};
            std::snprintf(code.data(), code.size(), "\\u%04x", unsigned{byte});
            result += code.data();
        } else if (length > 0) {
            result.append(text.substr(0, length));
        } else {
            result += '?';
        }
        text.remove_prefix(length > 0 ? length : 1);
    }
    return result + '"';
}

void complain(std::string_view text) {
    std::fprintf(stderr, "brisolt: %s\n", printable(text).c_str());
}

int afterOutput(int code) {
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return code;
    complain(std::string("standard output: ") +
             (errno != 0 ? std::strerror(errno) : "not all could be written"));
    return exitFailed;
}

void writeAll(int descriptor, std::string_view bytes, const std::string& what) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (count < 0 && errno == EAGAIN) {
            pollfd entry{descriptor, POLLOUT, 0};
            poll(&entry, 1, -1);
        } else if (errno != EINTR) {
            throw Failure(what + ": " + std::strerror(errno));
        }
    }
}

bool inColour(int descriptor) {
    const char* const refused = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return isatty(descriptor) != 0 && (refused == nullptr || *refused == '\0') &&
           (terminal == nullptr || std::strcmp(terminal, "dumb") != 0);
}

std::size_t columns(int descriptor) {
    winsize size{};
    if (isatty(descriptor) == 0)
        return 0;
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string timeOfDay() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%H:%M:%S", &parts);
    std::snprintf(&text[length], text.size() - length, ".%03d", static_cast<int>(milliseconds % 1000));
    return text.data();
}

std::string amount(double bytes) {
    constexpr std::array units{"B", "KB", "MB", "GB", "TB"};
    std::size_t unit = 0;
    for (; bytes >= 999.5 && unit + 1 < units.size(); ++unit)
        bytes /= 1000;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), unit == 0 || bytes >= 99.95 ? "%.0f %s" : "%.1f %s", bytes,
                  units[unit]);
    return text.data();
}

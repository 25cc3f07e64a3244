#include "output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <cwctype>

#include "commands.h"

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        wchar_t character = 0;
        std::mbstate_t state{};
        std::size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        const bool whole = length >= 1 && length <= text.size();
        if (whole && (character == L'\n' || std::iswprint(static_cast<std::wint_t>(character)) != 0)) {
            result.append(text.substr(0, length));
        } else {
            result += '?';
            length = 1;
        }
        text.remove_prefix(length);
    }
    return result;
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

#include "platform/message_box.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <string>

#include <unistd.h>

namespace brisolt::messageBox {

namespace {

std::atomic<void (*)(const char*, const char*)> shower{nullptr};

// One write: lines of several threads do not mix, and no lock of the stream can hold us up.
void writeLine(const char* text, const char* caption) noexcept try {
    std::string line = *caption ? std::string(caption) + ": " + text : std::string(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n'; }, ' ');
    line += '\n';
    if (::write(STDERR_FILENO, line.data(), line.size()) < 0)
        return;
} catch (const std::bad_alloc&) {
}

} // namespace

void show(const char* text, const char* caption) noexcept {
    text = text ? text : "";
    caption = caption ? caption : "";
    if (auto function = shower.load())
        function(text, caption);
    else
        writeLine(text, caption);
}

void setFunction(void (*function)(const char* text, const char* caption)) noexcept {
    shower = function;
}

} // namespace brisolt::messageBox

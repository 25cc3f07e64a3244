#include "transfer/progress.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace brisolt::progress {

namespace {

constexpr std::size_t nameField = sizeof(ComShowRecord::name);
static_assert(sizeof(ComShowRecord::targetFileName) == nameField);
static_assert(sizeof(ComShowRecord) == 572);

constexpr std::string_view noName = "Uninitialized Name";
constexpr std::size_t noNameSize = 20; ///< what of a buffer it fills, zero bytes included
constexpr std::size_t longestFilePart = 199;

// Callers read numbers through their address while a transfer writes them. A number that lies within one line of
// the processor's cache is never seen half-written, and the work area begins on a page.
constexpr bool inOneCacheLine(std::size_t field) {
    constexpr std::size_t line = 64;
    std::size_t at = (offsetof(PortWorkArea, show) + field) % line;
    return at + sizeof(uint32_t) <= line;
}
static_assert(inOneCacheLine(offsetof(ComShowRecord, bytes)) &&
              inOneCacheLine(offsetof(ComShowRecord, packets)) &&
              inOneCacheLine(offsetof(ComShowRecord, total)) &&
              inOneCacheLine(offsetof(ComShowRecord, errorNo)) &&
              inOneCacheLine(offsetof(ComShowRecord, targetEnabled)) &&
              inOneCacheLine(offsetof(ComShowRecord, modTime)) &&
              inOneCacheLine(offsetof(ComShowRecord, fileCompletionState)));

/// Copies into a field or buffer of that size, cut to it, with zero bytes behind.
void copyPadded(char* to, std::size_t size, std::string_view text) noexcept {
    std::size_t length = std::min(text.size(), size - 1);
    std::memmove(to, text.data(), length); // it may be the field itself
    std::memset(to + length, 0, size - length);
}

/// A name that a caller may have put in through the record's address, terminated or not.
std::string_view nameIn(const char (&field)[nameField]) noexcept {
    return {field, strnlen(field, nameField)};
}

constexpr bool isLetter(char character) {
    return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
}

std::string_view filePart(std::string_view path) noexcept {
    if (path.size() >= 2 && isLetter(path[0]) && path[1] == ':')
        path.remove_prefix(2);
    std::size_t slash = path.find_last_of("/\\");
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

} // namespace

void clear(Port& port) {
    withRecord(port, [](ComShowRecord& show) { std::memset(&show, 0, sizeof show); });
}

void addBytes(Port& port, uint32_t count) {
    withRecord(port, [=](ComShowRecord& show) { show.bytes += count; });
}

void setCompletion(Port& port, uint32_t outcome) {
    withRecord(port, [=](ComShowRecord& show) { show.fileCompletionState = outcome; });
}

void setName(Port& port, const char* name) {
    withRecord(port, [=](ComShowRecord& show) { copyPadded(show.name, nameField, name); });
}

void setTargetName(Port& port, const char* name) {
    withRecord(port, [=](ComShowRecord& show) {
        copyPadded(show.targetFileName, nameField, name);
        show.targetEnabled = 0;
    });
}

void copyName(Port& port, char* buffer) {
    withRecord(port, [=](const ComShowRecord& show) {
        std::string_view name = nameIn(show.name);
        if (name.empty())
            copyPadded(buffer, noNameSize, noName);
        else
            copyPadded(buffer, nameField, name);
    });
}

void copyTargetName(Port& port, char* buffer) {
    withRecord(
        port, [=](const ComShowRecord& show) { copyPadded(buffer, nameField, nameIn(show.targetFileName)); });
}

void copyFilePart(Port& port, char* buffer) {
    withRecord(port, [=](const ComShowRecord& show) {
        std::string_view name = nameIn(show.name);
        if (name.empty()) {
            copyPadded(buffer, noNameSize, noName);
            return;
        }
        std::string_view part = filePart(name).substr(0, longestFilePart);
        copyPadded(buffer, part.size() + 1, part);
    });
}

} // namespace brisolt::progress

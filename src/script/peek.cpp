#include "script/peek.h"

#include <algorithm>
#include <new>
#include <optional>
#include <string_view>

#include "port/port_table.h"
#include "port/trace.h"
#include "script/wildcard.h"
#include "stream/reading.h"

namespace brisolt {

namespace {

/// Copies as many unread bytes as there are, in ring order.
std::size_t copyUnread(Port& port, uint8_t* to, std::size_t most) noexcept {
    HeldLock lock(port);
    auto unread = port.rx.unread();
    std::size_t first = std::min(most, unread.first.size());
    std::size_t second = std::min(most - first, unread.second.size());
    std::copy_n(unread.first.begin(), first, to);
    std::copy_n(unread.second.begin(), second, to + first);
    return first + second;
}

std::optional<std::size_t> search(const char* text, const char* pattern, Pattern kind) noexcept {
    if (kind == Pattern::wildcards)
        return wildSearch(text, pattern);
    std::size_t at = std::string_view(text).find(pattern);
    return at == std::string_view::npos ? std::nullopt : std::optional(at);
}

} // namespace

int32_t findUnread(Port& port, uint8_t value) noexcept {
    HeldLock lock(port);
    auto unread = port.rx.unread();
    int32_t offset = 0;
    for (auto piece : {unread.first, unread.second}) {
        auto found = std::find(piece.begin(), piece.end(), value);
        if (found != piece.end())
            return offset + static_cast<int32_t>(found - piece.begin());
        offset += static_cast<int32_t>(piece.size());
    }
    return -1;
}

UnreadText::UnreadText(Port& port) noexcept {
    HeldLock lock(port);
    auto size = static_cast<std::size_t>(port.rx.count());
    text_.reset(new (std::nothrow) char[size + 1]());
    if (text_ != nullptr)
        copyUnread(port, reinterpret_cast<uint8_t*>(text_.get()), size);
}

int32_t peekChar(Port& port, int32_t character, int32_t* position, const char* name) {
    int32_t count = bytesWaiting(port);
    if (character < 0 || character > 255)
        return -1;
    if (count < 1)
        return 0;
    int32_t offset = findUnread(port, static_cast<uint8_t>(character));
    if (offset < 0)
        return 0;
    trace(port, "%s found position at %d", name, offset);
    *position = offset;
    return 1;
}

int32_t peekBuffer(Port& port, void* destination, int32_t count) {
    if (count < 1)
        return 0;
    if (destination == nullptr)
        return -1;
    int32_t want = std::min(count, bytesWaiting(port));
    if (want < 1)
        return 0;
    return static_cast<int32_t>(
        copyUnread(port, static_cast<uint8_t*>(destination), static_cast<std::size_t>(want)));
}

int32_t peekString(Port& port, const char* pattern, int32_t* position, Pattern kind) {
    if (bytesWaiting(port) < 1 || port.rx.storage == nullptr)
        return 0;
    UnreadText unread(port);
    if (unread.text() == nullptr)
        return -2;
    auto found = search(unread.text(), pattern, kind);
    if (!found)
        return 0;
    *position = static_cast<int32_t>(*found);
    return 1;
}

} // namespace brisolt

// Looks into the bytes that a port has received and nobody has read yet. Nothing is taken.
#pragma once

#include <cstdint>
#include <memory>

#include "port/port.h"

namespace brisolt {

/// The offset of a byte value in the unread bytes; below 0: not there.
int32_t findUnread(Port& port, uint8_t value) noexcept;

/// A zero-terminated copy of all unread bytes. It is not of the port's tracked memory, which another thread
/// may release while we search.
class UnreadText {
public:
    explicit UnreadText(Port& port) noexcept;
    UnreadText(const UnreadText&) = delete;
    UnreadText& operator=(const UnreadText&) = delete;
    const char* text() const noexcept { return text_.get(); } ///< null: there was no memory for it

private:
    std::unique_ptr<char[]> text_;
};

int32_t peekChar(Port& port, int32_t character, int32_t* position, const char* name);
int32_t peekBuffer(Port& port, void* destination, int32_t count);
enum class Pattern { plain, wildcards };
int32_t peekString(Port& port, const char* pattern, int32_t* position, Pattern kind);

} // namespace brisolt

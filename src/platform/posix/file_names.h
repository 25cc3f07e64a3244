// Names of files as programs give them, also those written for a host that separates with backslashes.
#pragma once

#include <cstdint>

#include "platform/file.h"

namespace brisolt::file {

/// A name with backslashes stands for the file with that very name if there is one, else for the one with
/// slashes in their place. It uses the caller's text and allocates nothing.
class HostName {
public:
    explicit HostName(const char* path, Spelling spelling = Spelling::programs) noexcept;
    /// Empty when it is too long for the host.
    const char* text() const noexcept { return asWritten_ != nullptr ? asWritten_ : translated_; }
    bool asWritten() const noexcept { return asWritten_ != nullptr; }

private:
    const char* asWritten_ = nullptr;
    char translated_[4096];
};

/// open() of the name. `creation` (O_CREAT and its like) goes for names with slashes only. Somebody's lease
/// on the file is given a moment to end. -1 and errno.
int32_t openByName(const HostName& name, int flags, int creation = 0, uint32_t permissions = 0) noexcept;

} // namespace brisolt::file

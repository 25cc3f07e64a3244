// Whether anybody has a file open, this program's own streams included: the host grants a lease on a file
// only when nobody's use of it is in the way.
#pragma once

#include <cstdint>

#include "platform/mutex.h"
#include "platform/posix/file_names.h"

namespace brisolt::file {

/// A look at a file through a descriptor of its own, open for reading. One at a time in this process: a
/// second descriptor would itself be somebody who has the file open.
class Look {
public:
    explicit Look(const HostName& name) noexcept;
    Look(const Look&) = delete;
    Look& operator=(const Look&) = delete;
    ~Look();

    int32_t descriptor() const noexcept { return descriptor_; } ///< -1 and errno: it cannot be opened

    enum class Answer { free, held, unknown };
    /// Whether the file is free of what would be denied to others (bits as in open_files.h, at least
    /// writing). While the look lasts, nobody gets it open who would not be denied. Unknown where the host
    /// grants no leases: on somebody else's file, on some network file systems.
    Answer keepOthersOff(uint32_t denied) noexcept;

private:
    MutexLock turn_;
    int32_t descriptor_;
    bool leased_ = false;
};

} // namespace brisolt::file

// The lock files by which programs have kept out of each other's way on serial devices since UUCP: a file named
// after the device holds the number of the process that uses it. Terminal programs, dialers and gettys keep to
// them, and most look at nothing else.
#pragma once

#include <cstdint>
#include <string>

namespace brisolt::tty {

class UucpLock {
public:
    UucpLock() = default;
    ~UucpLock() { release(); }
    UucpLock(const UucpLock&) = delete;
    UucpLock& operator=(const UucpLock&) = delete;

    /// Takes the lock of the device that the path leads to, where the folder of the locks can be written. The living
    /// process that has it, else 0. One of this program's own is left as it is.
    int32_t take(const std::string& path);
    void release() noexcept;
    /// The name of the file that belongs to a device.
    static std::string fileFor(const std::string& path);

private:
    std::string file_; ///< empty: there is none of ours
};

} // namespace brisolt::tty

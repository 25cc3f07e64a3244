// The lock files by which programs have kept out of each other's way on serial devices since UUCP: a file named
// after the device holds the number of the process that uses it. Terminal programs, dialers and gettys keep to
// them, and most look at nothing else.
#pragma once

#include <cstdint>
#include <string>

#include "platform/mutex.h"

namespace brisolt::tty {

class UucpLock {
public:
    UucpLock() = default;
    ~UucpLock() { release(); }
    UucpLock(const UucpLock&) = delete;
    UucpLock& operator=(const UucpLock&) = delete;

    /// A process that has made its file and not yet written its number into it.
    static constexpr int32_t unnamed = -1;

    /// Takes the lock of the device that the path leads to, where the folder of the locks can be written. The living
    /// process that has it (or `unnamed`), else 0. One that this program has already is shared, and goes with the
    /// last; one that another part of the program made is left as it is.
    int32_t take(const std::string& path);
    void release() noexcept;
    /// The name of the file that belongs to a device.
    static std::string fileFor(const std::string& path);

private:
    void enlist(std::string file) noexcept WITH_LOCK(mutex_);
    void delist() noexcept WITH_LOCK(mutex_);
    static void beginAnew() noexcept;
    static bool isOurs(const std::string& file) noexcept WITH_LOCK(mutex_);

    // Neither made on first use nor ever gone: a port may still be closing while the program ends.
    static inline constinit Mutex mutex_;
    static inline constinit UucpLock* first_ GUARDED_BY(mutex_) = nullptr; ///< those that hold a file

    std::string file_; ///< empty: there is none of ours
    UucpLock* next_ = nullptr;
};

} // namespace brisolt::tty

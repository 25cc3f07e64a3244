// Files of the logs: opened for one operation, with the sharing rules the logs promise. Inside the process
// the rules are kept by a table of open files, against other processes by an advisory lock.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisolt::file {

enum class Sharing {
    all,      ///< others may read and write
    readOnly, ///< others may read but not write while it is open
};
enum class Missing { create, refuse };

/// A file open for appending. Null-like when it could not be opened.
class Appender {
public:
    Appender(const char* path, Sharing sharing, Missing missing) noexcept;
    ~Appender();
    Appender(const Appender&) = delete;
    Appender& operator=(const Appender&) = delete;
    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    /// One write call at the file's end; false when not all of it went in.
    bool append(std::string_view text) noexcept;

private:
    const char* enter(int32_t descriptor, Sharing sharing) noexcept;

    int32_t descriptor_ = -1;
    bool registered_ = false;
};

} // namespace brisolt::file

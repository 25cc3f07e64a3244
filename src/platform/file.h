// Files that are opened for one operation, with the sharing rules that the logs and readers promise. Inside
// the process the rules are kept by a table of open files, against other processes by an advisory lock.
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
    /// Takes out what it holds; false when that cannot be done. A device holds nothing.
    bool empty() noexcept;

private:
    const char* enter(int32_t descriptor, Sharing sharing) noexcept;

    int32_t descriptor_ = -1;
    bool registered_ = false;
};

/// A file open for reading from its start. Null-like when it could not be opened.
class Reader {
public:
    /// With Sharing::readOnly a file that somebody has open for writing is refused.
    Reader(const char* path, Sharing sharing) noexcept;
    Reader(Reader&& other) noexcept;
    Reader& operator=(const Reader&) = delete;
    ~Reader();
    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    /// Bytes read, 0 at the end, below 0 when it failed.
    int32_t read(void* buffer, int32_t count) noexcept;
    /// Its size in bytes, -1 for one that could not be opened.
    int64_t size() const noexcept;

private:
    int32_t descriptor_ = -1;
};

} // namespace brisolt::file

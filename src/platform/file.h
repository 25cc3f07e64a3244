// Files with the sharing rules that their users rely on: who opens a file says what it does with it and what
// others may do meanwhile. Inside the process the rules are kept by a table of open files. What other
// processes do is asked of the host: leases tell whether anybody has a file open, advisory locks keep two
// programs from writing to one log.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace brisolt::file {

enum class Access { read, write, readWrite };
enum class Sharing {
    all,      ///< others may read and write
    readOnly, ///< others may read but not write while it is open
    none,     ///< nobody else may have it open
};
enum class Opening { existing, createMissing, createNew };
enum class Missing { create, refuse };

struct How {
    Access access;
    Sharing sharing;
    Opening opening = Opening::existing;
    /// Every write goes to the file's end. It is opened for one entry and other programs' readers and
    /// writers are left in peace: only a lock keeps out those who write entries of their own.
    bool forEntries = false;
    bool atEnd = false; ///< it begins at the file's end, not at its start
    /// What a new file may be used for by whom, as far as the program's own mask allows.
    uint32_t permissions = 0666;
};

/// An open file or character device; null-like when it could not be opened. A file that nobody may write
/// counts as read-only for the superuser, too. Pipes and directories are no files. A file that was made and
/// then could not be used is gone again.
class File {
public:
    File() = default;
    File(const char* path, const How& how) noexcept;
    /// A new file on a directory's disk that has no name there, so that nothing is left of it unless it is
    /// given one. Null-like where the host has no such files.
    static File unnamed(const char* directory, uint32_t permissions) noexcept;
    /// False when that fails, as when something has the name already.
    bool giveName(const char* path) noexcept;
    File(File&& other) noexcept;
    File& operator=(File&& other) noexcept;
    ~File() { close(); }
    explicit operator bool() const noexcept { return descriptor_ >= 0; }
    /// One read: bytes, 0 at the end, below 0 when it failed.
    int32_t read(void* buffer, int32_t count) noexcept;
    /// One write: bytes that went in, below 0 when it failed.
    int32_t write(const void* bytes, int32_t count) noexcept;
    /// The new position, from the start; -1 when there is no such.
    int64_t seek(int64_t position) noexcept;
    int64_t seekEnd() noexcept;
    /// Its size in bytes, -1 for one that could not be opened.
    int64_t size() const noexcept;
    uint32_t permissions() const noexcept; ///< as in How
    bool truncate(int64_t size) noexcept;
    /// Takes owner and permissions from the file of that name.
    bool takeOver(const char* path) noexcept;
    /// Returns when all that was written is on the disk; false when it is not.
    bool flush() noexcept;
    /// False when the host reports at last that something written was lost.
    bool close() noexcept;

private:
    int32_t descriptor_ = -1;
    bool entered_ = false; ///< it stands in the table of open files
};

/// A file open for appending entries. Null-like when it could not be opened.
class Appender {
public:
    Appender(const char* path, Sharing sharing, Missing missing) noexcept;
    explicit operator bool() const noexcept { return bool(file_); }
    /// One write call at the file's end; false when not all of it went in.
    bool append(std::string_view text) noexcept;
    /// Takes out what it holds; false when that cannot be done. A device holds nothing.
    bool empty() noexcept { return file_.truncate(0); }

private:
    File file_;
};

/// A file open for reading from its start. Null-like when it could not be opened.
class Reader {
public:
    /// With Sharing::readOnly a file that somebody has open for writing is refused.
    Reader(const char* path, Sharing sharing) noexcept : file_(path, {Access::read, sharing}) {}
    explicit operator bool() const noexcept { return bool(file_); }
    /// Bytes read, 0 at the end, below 0 when it failed.
    int32_t read(void* buffer, int32_t count) noexcept { return file_.read(buffer, count); }
    /// Its size in bytes, -1 for one that could not be opened.
    int64_t size() const noexcept { return file_.size(); }

private:
    File file_;
};

// ---- files by name

/// Whether a file of that name could be opened so. Nothing is opened for writing, devices and pipes are not
/// opened at all (they are no files here), and a test never stands in the way of another.
bool exists(const char* path, Access access, Sharing sharing) noexcept;
/// Whose way of writing a name: a program's, which may have been written for another host, or this host's,
/// in which a backslash is a character of the name.
enum class Spelling { programs, hosts };
/// Deletes the name of a file that nobody has open and that may be written. Of a link the link goes.
bool remove(const char* path, Spelling spelling = Spelling::programs) noexcept;
/// Whether something has that name, a link that leads nowhere included.
bool taken(const char* path) noexcept;
/// Deletes a file of our own making that is not to be.
void discard(const char* path) noexcept;
/// As remove does it, and in one step the successor takes that name and place.
bool replace(const char* path, const char* successor) noexcept;
/// Gives a file another name on the same disk. False when something has that name already.
bool rename(const char* from, const char* to) noexcept;
/// Returns when what has become of a name survives a power failure, which its directory has to tell the disk.
/// Where a directory cannot be written so, nothing more can be done.
void keepName(const char* path) noexcept;
/// Seconds since 1970 UTC, -1 when there is nothing of that name.
int64_t modificationTime(const char* path) noexcept;
/// Bytes in the file behind a stream, -1 when there is none.
int64_t sizeBehind(std::FILE* stream) noexcept;

/// The name under which this host has the file: names may be written with backslashes. Empty when it is too
/// long for the host.
std::string nameOnHost(const char* path);
/// The same with links followed to where the file really is, or would be; where it is empty, the error text says why.
std::string realPlace(const char* path);

/// The host's code for the calling thread's last failure.
int32_t lastFailure() noexcept;
/// Tells people: "cannot ACT PATH: REASON".
void tell(const char* act, const char* path, const char* reason) noexcept;
/// The same of that failure.
void tellFailure(const char* act, const char* path) noexcept;

} // namespace brisolt::file

// The other end of the measured lines: pseudo terminals or connections, and a process of their own that works on
// their far sides, so that its processor time is not counted as ours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace bench {

enum class Reach : uint8_t { terminal, tcp, remotePort };

class FarEnd {
public:
    /// `core`: the processor it is held to, -1 for any.
    FarEnd(std::size_t lines, int core, Reach reach = Reach::terminal);
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;
    ~FarEnd();

    const std::vector<std::string>& paths() const { return paths_; }

    /// Begins a job and returns: to send back `bytes` bytes, counted over all lines; on the first line to
    /// send so many bytes, to read so many, or to do both at once.
    void echo(std::size_t bytes) { begin('e', bytes); }
    void source(std::size_t bytes) { begin('s', bytes); }
    void sink(std::size_t bytes) { begin('r', bytes); }
    void exchange(std::size_t bytes) { begin('x', bytes); }
    /// Waits for the end of the job.
    void finish();

private:
    void begin(char kind, std::size_t bytes);

    std::vector<std::string> paths_;
    int control_ = -1;
    pid_t child_ = -1;
};

/// Holds the calling thread, and all that it starts from now on, to one processor; -1: to none.
void pin(int core);

/// `count` pseudo terminals whose masters stay open in this process, with nobody working on them.
std::vector<std::string> silentLines(std::size_t count);

/// The bytes that a far end sends; they repeat every 64 KB.
inline char patternAt(std::size_t position) {
    position %= 65536;
    return static_cast<char>(position * 31 + position / 251);
}

} // namespace bench

// Where the library asks its host for something, and where a test lets the host refuse. The linker leads the calls
// of seam.list here (cmake: --wrap); operator new is replaced. A program without this seam has none of it.
#pragma once

#include <atomic>

namespace brisolt::faults {

enum class Mode { once, on, partly, interrupted, count };
constexpr const char* modeNames[] = {"once", "on", "partly", "interrupted"};

/// What a process has met; in memory that outlives it.
struct Meter {
    std::atomic<long> met[4] = {}; ///< by the mode that concerns them
    std::atomic<long> failed{0};
    char call[24] = "", kind[12] = ""; ///< that failed first
};

/// From now on fails the call of that number, of those that the mode concerns, or (`on`) it and all after it; with 0
/// it only counts, for all modes. `partly`: that read or write moves half of what there is; `interrupted`: that call gives EINTR.
void arm(Meter& meter, Mode mode, long point, bool trace);
void disarm();

/// The calling thread is the far end, or the test itself: its host never fails, nor that of a std::thread it starts.
inline thread_local int spared = 0;
struct Spared {
    Spared() { ++spared; }
    ~Spared() { --spared; }
    Spared(const Spared&) = delete;
    Spared& operator=(const Spared&) = delete;
};

/// A call of the library out of a spared thread.
template <class Function, class... Arguments> auto call(Function function, Arguments... arguments) {
    struct Exposed {
        Exposed() { --spared; }
        ~Exposed() { ++spared; }
    } const exposed;
    return function(arguments...);
}

} // namespace brisolt::faults

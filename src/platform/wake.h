// What a thread of the library's callers, or an I/O thread, sleeps on. Whoever changes something that may
// end the sleep calls wake(); it costs a system call only while the thread really sleeps.
//
// The sleeper's order, without which a wake-up could be lost:
//     Wake& wake = Wake::ofThisThread();
//     wake.prepare();                  // from here on wake() is remembered
//     if (nothing to do yet)
//         wake.sleep(), or a wait on wake.descriptor() and the device;
//     wake.finish();
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/signal.h"

namespace brisolt {

class Wake {
public:
    /// The calling thread's own. Shared, so that a thread may be woken while it ends.
    static const std::shared_ptr<Wake>& ofThisThread();
    /// One for a thread that is yet to start; null when the host has no descriptor for it.
    static std::shared_ptr<Wake> make() noexcept;
    /// Makes it the calling thread's own; for a new thread, before it has used one.
    static void giveThisThread(std::shared_ptr<Wake> wake);

    void wake() noexcept; ///< any thread
    void prepare() noexcept;
    bool woken() const noexcept; ///< between prepare and finish: wake() was called
    void finish() noexcept;
    /// Between prepare and finish: sleeps on nothing else, at most that long (real milliseconds, -1: no
    /// limit). Cheaper than a wait on the descriptor, which is for threads that watch a device as well.
    void sleep(int32_t realMilliseconds) noexcept;
    int32_t descriptor() const noexcept { return signal_.descriptor(); }
    /// The time-out for a wait on the descriptor: the one given, cut short on a host that had no descriptor
    /// left, where nobody can end the wait.
    int32_t patience(int32_t realMilliseconds) const noexcept;

private:
    enum State : uint32_t { awake = 0, asleep = 1, called = 2, parked = 4 }; // bits
    void drain() noexcept;

    std::atomic<uint32_t> state_{awake};
    int64_t owed_ = 0; ///< the sleeper's: wake-ups whose write it has not read yet
    Signal signal_;
};

} // namespace brisolt

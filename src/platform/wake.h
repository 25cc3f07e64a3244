// What a thread of the library's callers, or an I/O thread, sleeps on. Whoever changes something that may
// end the sleep calls wake(); it costs a system call only while the thread really sleeps.
//
// The sleeper's order, without which a wake-up could be lost:
//     Wake& wake = *Wake::ofThisThread();
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
    Wake() noexcept = default;

    /// The calling thread's own. Shared, so that a thread may be woken while it ends. Never null: where the host
    /// has no memory for one it is blind, until there is.
    static const std::shared_ptr<Wake>& ofThisThread() noexcept;
    /// One for a thread that is yet to start; null when the host has no descriptor for it.
    static std::shared_ptr<Wake> make() noexcept;
    /// Makes it the calling thread's own; for a new thread, before it has used one. False: no memory.
    [[nodiscard]] static bool giveThisThread(std::shared_ptr<Wake> wake) noexcept;

    /// Nobody can call whoever sleeps on it; its sleeps are short instead.
    bool blind() const noexcept { return blind_; }
    void wake() noexcept; ///< any thread
    void prepare() noexcept;
    bool woken() const noexcept; ///< between prepare and finish: wake() was called
    void finish() noexcept;
    /// Between prepare and finish: sleeps on nothing else, at most that long (real milliseconds, -1: no
    /// limit). Cheaper than a wait on the descriptor, which is for threads that watch a device as well.
    void sleep(int32_t realMilliseconds) noexcept;
    /// The same, ended by a signal handler that runs on this thread, too; whether one has.
    bool sleepInterruptibly(int32_t realMilliseconds) noexcept;
    int32_t descriptor() const noexcept { return signal_.descriptor(); }
    /// The time-out for a wait on the descriptor: the one given, cut short on a host that had no descriptor
    /// left, where nobody can end the wait.
    int32_t patience(int32_t realMilliseconds) const noexcept;
    /// After such a wait, with whether there was a reason for its end (a call, an event, the time). Now and then
    /// there is none, when the write for an earlier call comes late. Where it goes on like that, the host or the
    /// driver of a device fails to wait: true then, after a moment's rest, and the sleeper has to look for itself.
    bool cannotWait(bool reason) noexcept {
        if (!reason)
            return restAfterAnother();
        causeless_ = 0;
        return false;
    }

private:
    struct Blind;
    explicit Wake(int32_t noDescriptor) noexcept : signal_(noDescriptor), blind_(true) {}
    static const std::shared_ptr<Wake>& blindOne() noexcept;
    enum State : uint32_t { awake = 0, asleep = 1, called = 2, parked = 4 }; // bits
    void drain() noexcept;
    bool restAfterAnother() noexcept;

    std::atomic<uint32_t> state_{awake};
    int64_t owed_ = 0;      ///< the sleeper's: wake-ups whose write it has not read yet
    int32_t causeless_ = 0; ///< the sleeper's: waits on end that ended for no reason
    Signal signal_;
    const bool blind_ = false;
};

} // namespace brisolt

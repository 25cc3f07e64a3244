// A null-modem cable inside the process: two ends, the characters that travel between them, and the
// threads that wait for something at an end. A loop is a cable with one end that is its own peer.
//
// No thread moves the characters. Whoever looks at the cable first brings it up to the present moment: all
// characters that are over by then arrive, in the order of their moments. A paced cable gives a character
// the time that it takes at its sender's rate; on any other it takes none, which is the same procedure. A
// waiting thread sleeps until the next character is due at the latest.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "device/null_modem_cables.h"
#include "device/null_modem_end.h"
#include "platform/clock.h"
#include "platform/mutex.h"
#include "platform/signal.h"

namespace brisolt {

class NullModemCable {
public:
    NullModemCable(const CableKind& kind, std::string_view name);

    /// The only way to touch an end: holds the cable's lock, finds the line up to date, and in the end
    /// lets the change take effect and wakes whoever waits for it.
    struct Inside {
        explicit Inside(NullModemEnd& end) noexcept : Inside(end.cable) {}
        explicit Inside(NullModemCable& itsCable) noexcept : cable(itsCable), lock(itsCable.mutex_) {
            cable.advance();
        }
        ~Inside() {
            cable.settle();
            cable.tell(lock);
        }
        /// Lets the line take what it takes at once.
        void proceed() noexcept { cable.advance(); }
        NullModemCable& cable;
        MutexLock lock;
    };

    /// A free end, connected. 1, or a negative host error number: all are taken, or the host has no memory
    /// or descriptor for it.
    int32_t join(const NullModemStart& start, NullModemEnd*& joined) noexcept;
    void leave(NullModemEnd& end) noexcept;
    /// Calls `changed` from now on when a counter of the end has moved; null: no more, once this has returned.
    void watch(NullModemEnd& end, void (*changed)(void*), void* argument) noexcept LOCKS_UNCHECKED;
    bool unused() noexcept; ///< no end is open
    void ring(bool on) noexcept;
    const CableKind& kind() const noexcept { return kind_; }
    const std::string& name() const noexcept { return name_; }

    /// Waits, without the lock, until one of `wanted` (NullModemCondition) holds, `wake` is readable, the
    /// time is over, the end is cancelled, a signal handler has run or the host fails to wait. Those that hold then.
    uint32_t wait(Inside& inside, NullModemEnd& end, uint32_t wanted, int32_t wake, clock::Deadline limit,
                  bool* interrupted = nullptr) noexcept;

    NullModemCable* next = nullptr; ///< for the list that it is found in

private:
    /// A waiting thread, on its own stack. One that waits for nothing beside the end sleeps on the word
    /// `called`, which needs nothing from the host; another on descriptors, the end's handle among them.
    struct Waiter {
        NullModemEnd& end;
        uint32_t wanted;
        uint32_t cancels; ///< the end's, when the wait began
        uint64_t wakesAt = 0;
        Signal* bell = nullptr;
        std::atomic<uint32_t> called{0};
        Waiter* next = nullptr;
    };
    enum class Slept { on, woken, blind, interrupted };

    void advance() noexcept;
    void settle() noexcept;
    /// Tells whoever watches of counters that have moved, without the lock meanwhile: they look at the end.
    void tell(MutexLock& lock) noexcept LOCKS_UNCHECKED;
    bool isPaced() const noexcept;
    void startCharacters(bool takeTime) noexcept;
    NullModemEnd* firstDue() noexcept;
    uint64_t nextMoment() noexcept;
    static void call(Waiter& waiter) noexcept;
    Slept sleep(Inside& inside, Waiter&& waiter, int32_t wake,
                clock::Deadline limit) noexcept LOCKS_UNCHECKED;
    static Slept park(Waiter& waiter, clock::Deadline limit) noexcept;
    static Slept doze(Waiter& waiter, int32_t wake, clock::Deadline limit) noexcept;
    void enlist(Waiter& waiter) noexcept;
    void dismiss(Waiter& waiter) noexcept;

    const CableKind& kind_;
    const std::string name_;
    Mutex mutex_;                  ///< what follows, by an Inside; the compiler cannot follow that
    std::condition_variable told_; ///< a thread that tells has come back
    std::unique_ptr<NullModemEnd> ends_[2];
    Waiter* waiters_ = nullptr;
    uint64_t now_ = 0; ///< the cable's own time: nanoseconds of the tick counter, without its wrap
    uint32_t tick_;    ///< the tick counter at now_
};

} // namespace brisolt

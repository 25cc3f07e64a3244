// Who looks at a port's device while whom sleeps. This is the whole of it:
//
// A byte should reach the thread that wants it without the turn of another one. So whoever waits on a port
// watches its device itself, and the port's own thread, the I/O thread, stands back meanwhile. Three may watch:
//
// - The I/O thread, when nobody else does: it sleeps on the device and moves what comes into the rings.
// - A caller that waits inside a call on the port (ComReadBuf, ComHostRead, a stimulus): for the length of its
//   sleep. The I/O thread is relieved while one watches, and stands by for a moment after: a caller that came
//   once comes again. `CallerWatch` is the caller's side, `ThreadShare` the I/O thread's, and what both see of
//   each other is a `DirectionWatch`, one for bytes that come and one for room for what is to be sent.
// - A lookout (lookout.h): a thread that the port notifies by messages, while it waits for messages. It watches
//   over all such ports at once, and a deputy of the library's does it in its place while it is busy elsewhere.
//   For bytes that come only. `Posting` (posting.h) is the port's side.
//
// Nobody hands the watch over: each says what it does (a stance, a count of callers) before it looks at what
// the other does, and sleeps only when the other has not changed its mind since (`crossed`); who changes his
// mind wakes the other. So at no moment does a byte come that nobody looks for.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/clock.h"

namespace brisolt {

/// What the I/O thread does about one direction of the device.
enum class Stance : int32_t {
    busy,     ///< in a round, or waiting for its pace: it will look again by itself
    watching, ///< it sleeps on the device
    standby,  ///< callers watch now and then; it takes over when none has for a while
    relieved, ///< somebody is watching right now, who calls the thread on leaving
};

/// The watch over one direction of the device, as the I/O thread and the callers see it of each other.
struct DirectionWatch {
    std::atomic<Stance> stance{Stance::busy};
    std::atomic<int32_t> callers{0}; ///< that watch it now
    std::atomic<uint32_t> begun{0};  ///< how often one began

    bool threadStandsBack() const noexcept {
        Stance now = stance.load(std::memory_order_relaxed);
        return now == Stance::standby || now == Stance::relieved;
    }
    void reset() noexcept {
        stance = Stance::busy;
        callers = 0;
        begun = 0;
    }
    /// True when the thread has to be called, so that it stands back.
    bool callerBegins() noexcept {
        begun.fetch_add(1);
        callers.fetch_add(1);
        return stance.load() == Stance::watching;
    }
    /// A caller has taken bytes without a wait: while it goes on so, it stands for one that watches.
    void callerFound() noexcept { begun.fetch_add(1, std::memory_order_relaxed); }
    /// A caller has left bytes to be sent, and may come again with more. True when the thread has to be called, so
    /// that it does not rely on that for long.
    bool callerLeaves() noexcept {
        begun.fetch_add(1);
        return stance.load() != Stance::standby;
    }
    /// True when the thread has to be called, since nobody watches any more.
    bool callerEnds() noexcept {
        bool last = callers.fetch_sub(1) == 1;
        return last && stance.load() == Stance::relieved;
    }
};

/// How long the thread leaves the device to callers after the last has watched it. Their own calls take
/// what comes meanwhile; what is to be sent must not wait for long.
inline constexpr uint32_t receivingLease = 20;
inline constexpr uint32_t sendingLease = 1;

/// The I/O thread's share in the watch over one direction; a deputy's in its lookout's.
class ThreadShare {
public:
    explicit ThreadShare(uint32_t lease) noexcept : lease_(lease) {}

    /// For the sleep to come.
    Stance choose(const DirectionWatch& watch) noexcept {
        uint32_t begun = watch.begun.load();
        bool watched = watch.callers.load() > 0;
        bool justLeft = wasRelieved_ && !watched;
        wasRelieved_ = false;
        if (begun != seen_ || justLeft) {
            seen_ = begun;
            standbyUntil_ = clock::Deadline::in(lease_);
            return Stance::standby;
        }
        if (watched) {
            wasRelieved_ = true;
            return Stance::relieved;
        }
        return standbyUntil_.passed() ? Stance::watching : Stance::standby;
    }
    /// A caller has come or gone while the choice was made, and did not see it yet.
    static bool crossed(Stance choice, const DirectionWatch& watch) noexcept {
        bool watched = watch.callers.load() > 0;
        return (choice == Stance::watching && watched) || (choice == Stance::relieved && !watched);
    }
    /// A caller has come since: what the thread was woken for is the caller's.
    bool overtaken(const DirectionWatch& watch) const noexcept { return watch.begun.load() != seen_; }
    const clock::Deadline& standbyUntil() const noexcept { return standbyUntil_; }

private:
    uint32_t lease_;
    uint32_t seen_ = 0;
    bool wasRelieved_ = false;
    clock::Deadline standbyUntil_ = clock::Deadline::in(0);
};

} // namespace brisolt

// A port's posting to a lookout (watch.h tells the whole): the thread that the port notifies takes its bytes off
// the device itself while it waits for messages, so that a byte on any of many lines reaches it without the turn
// of another thread.
//
// A port is posted when that one thread is all it notifies, its rounds have no pace and its device has a
// descriptor that stays. At the first sign of anything else (a full ring, a suspension, a device that has gone
// away) it is sent back to its own thread.
#pragma once

#include <cstdint>
#include <memory>

#include "brisolt_host.h"
#include "platform/clock.h"
#include "port/port.h"

namespace brisolt {

class Lookout;

/// ComHostGetMessage.
int32_t awaitMessage(ComHostMessage* message, int32_t milliseconds) noexcept;

/// The calling thread may be all that the port notifies now: its own thread may stand back from then on.
void offerToWatch(const Port& port) noexcept;

/// Whether the calling thread is the port's lookout: what it writes it may send itself.
bool watchedHere(const Port& port) noexcept;

/// The I/O thread's side.
class Posting {
public:
    explicit Posting(Port& port) noexcept : port_(port) {}
    Posting(const Posting&) = delete;
    Posting& operator=(const Posting&) = delete;
    ~Posting() { leave(); }

    /// Who watches for bytes while the thread sleeps: the thread itself, or the lookout.
    Stance choose() noexcept;
    /// The port has been sent back since the choice was made.
    bool crossed() const noexcept;
    /// When a port that was sent back looks for its lookout again.
    const clock::Deadline& onItsOwnUntil() const noexcept { return onItsOwn_; }

private:
    bool sentBack() const noexcept;
    void join(uint32_t thread) noexcept;
    void leave() noexcept;

    Port& port_;
    std::shared_ptr<Lookout> lookout_;
    uint32_t ticket_ = 0;
    clock::Deadline onItsOwn_ = clock::Deadline::never();
};

} // namespace brisolt

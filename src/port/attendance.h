// A thread that is told by message of what its ports receive, and waits for messages, attends to those ports:
// while it waits it takes their bytes off the devices itself, so that a byte on any of many lines reaches it
// without the turn of another thread. The ports' own threads stand aside meanwhile.
//
// A port is attended when that one thread is all it notifies, its rounds have no pace and its device has a
// descriptor. At the first sign of anything else (a full ring, a suspension, a device that has gone away) it
// is sent back to its own thread.
#pragma once

#include <cstdint>
#include <memory>

#include "brisolt_host.h"
#include "platform/clock.h"
#include "port/port.h"

namespace brisolt {

class Attendant;

/// ComHostGetMessage.
int32_t awaitMessage(ComHostMessage* message, int32_t milliseconds) noexcept;

/// The calling thread may be all that the port notifies now: its threads may stand aside from then on.
void offerAttendance(const Port& port) noexcept;

/// Whether the calling thread attends to the port: what it writes it may send itself.
bool attendedHere(const Port& port) noexcept;

/// The I/O thread's side.
class Attendance {
public:
    explicit Attendance(Port& port) noexcept : port_(port) {}
    Attendance(const Attendance&) = delete;
    Attendance& operator=(const Attendance&) = delete;
    ~Attendance() { leave(); }

    /// Who watches for bytes while the thread sleeps: the thread itself, or the attendant.
    ThreadWatch choose() noexcept;
    /// The port has been sent back since the choice was made.
    bool crossed() const noexcept;
    /// When a port that was sent back looks for its attendant again.
    const clock::Deadline& onItsOwnUntil() const noexcept { return onItsOwn_; }

private:
    bool sentBack() const noexcept;
    void join(uint32_t thread) noexcept;
    void leave() noexcept;

    Port& port_;
    std::shared_ptr<Attendant> attendant_;
    uint32_t ticket_ = 0;
    clock::Deadline onItsOwn_ = clock::Deadline::never();
};

} // namespace brisolt

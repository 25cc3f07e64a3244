// A null-modem cable inside the process: two ends, the characters that travel between them, and the
// threads that wait for something at an end.
//
// No thread moves the characters. Whoever looks at the cable first brings it up to the present moment: all
// characters that are over by then arrive, in the order of their moments. A paced cable gives a character
// the time that it takes at its sender's rate; on any other it takes none, which is the same procedure. A
// waiting thread sleeps until the next character is due at the latest.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "device/null_modem_end.h"
#include "platform/clock.h"
#include "platform/signal.h"

namespace brisolt {

class NullModemCable {
public:
    explicit NullModemCable(std::string name) noexcept;

    /// The only way to touch an end: holds the cable's lock, finds the line up to date, and in the end
    /// lets the change take effect and wakes whoever waits for it.
    struct Inside {
        explicit Inside(NullModemEnd& end) noexcept : Inside(end.cable) {}
        explicit Inside(NullModemCable& itsCable) noexcept : cable(itsCable), lock(itsCable.mutex_) {
            cable.advance();
        }
        ~Inside() { cable.settle(); }
        NullModemCable& cable;
        std::unique_lock<std::mutex> lock;
    };

    /// A free end, connected; null when both are taken.
    NullModemEnd* join(bool paced, bool autobaud) noexcept;
    /// Gives the end back. False when it was the last: nobody knows the cable any more.
    bool leave(NullModemEnd& end) noexcept;
    void ring(bool on) noexcept;
    const std::string& name() const noexcept { return name_; }

    /// Waits, without the lock, until one of `wanted` (NullModemCondition) holds, `wake` is readable, the
    /// time is over or the end is cancelled. Those that hold then.
    uint32_t wait(Inside& inside, NullModemEnd& end, uint32_t wanted, int32_t wake,
                  clock::Deadline limit) noexcept;

private:
    struct Waiter {
        NullModemEnd& end;
        uint32_t wanted;
        uint64_t wakesAt;
        Signal& called;
        bool wasCalled = false;
    };

    void advance() noexcept;
    void settle() noexcept;
    void startCharacters() noexcept;
    NullModemEnd* firstDue() noexcept;
    uint64_t nextMoment() noexcept;
    bool sleep(Inside& inside, NullModemEnd& end, uint32_t wanted, int32_t wake,
               clock::Deadline limit) noexcept;

    const std::string name_;
    std::mutex mutex_;
    std::unique_ptr<NullModemEnd> ends_[2];
    std::vector<Waiter*> waiters_;
    uint64_t now_ = 0; ///< the cable's own time: nanoseconds of the tick counter, without its wrap
    uint32_t tick_;    ///< the tick counter at now_
};

} // namespace brisolt

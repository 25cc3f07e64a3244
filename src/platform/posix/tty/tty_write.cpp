// Writing to a tty. A complete write ends when the line has taken the bytes, not when the kernel has: what
// the line does not take in time is taken back, so that it cannot turn up on the line later.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <utility>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/mutex.h"
#include "platform/posix/tty/tty_device.h"
#include "platform/write_limit.h"

namespace brisolt::tty {
namespace {

constexpr int32_t noStep = -1;
constexpr int32_t dsrStep = 10; // milliseconds between two looks at DSR

/// How an attempt or a pause ended. Zero and above: as errno, with 0 for time over.
enum : int32_t { goOn = -1, timeOver = 0 };

/// A write or flush that goes on, and what it has found when it began.
class Begun {
public:
    Begun(TtyDevice& tty, int32_t count) : tty_(tty) {
        MutexLock guard(tty.lock);
        deadline = writeLimit(tty.timeouts, count);
        interruptions_ = tty.interruptions;
        abandoned_ = tty.abandoned;
        // An earlier interruption is over when the last of the writes that it concerned is.
        if (tty.writes++ == 0 && std::exchange(tty.interrupted, false))
            tty.interruption.clear();
    }
    Begun(const Begun&) = delete;
    Begun& operator=(const Begun&) = delete;
    ~Begun() {
        MutexLock guard(tty_.lock);
        --tty_.writes;
    }

    bool interrupted() const { return tty_.cancelled || tty_.interruptions != interruptions_; }
    /// A purge has thrown something away: an empty queue does not mean that all has left.
    bool purged() const {
        MutexLock guard(tty_.lock);
        return tty_.abandoned != abandoned_;
    }
    /// Takes back what has not left. How much of the `handed` bytes is lost, to purges of others as well.
    int32_t takeBack(int32_t handed) const {
        MutexLock guard(tty_.lock);
        const int32_t taken = discardOutput(tty_);
        if (taken < 0)
            return handed;
        const uint64_t lost = uint64_t{tty_.abandoned - abandoned_} + static_cast<uint64_t>(taken);
        return static_cast<int32_t>(std::min<uint64_t>(lost, static_cast<uint64_t>(handed)));
    }

    clock::Deadline deadline;

private:
    TtyDevice& tty_;
    uint32_t interruptions_;
    uint32_t abandoned_;
};

/// Sleeps a step, or until the tty takes bytes if `forRoom`, unless the write is over before that.
int32_t pause(const TtyDevice& tty, const Begun& begun, bool forRoom, int32_t step) {
    if (begun.interrupted())
        return ECANCELED;
    const int32_t left = begun.deadline.realMillisecondsLeft();
    const int32_t length = step == noStep ? left : left < 0 ? step : std::min(left, step);
    std::array<pollfd, 2> set{
        {{tty.interruption.descriptor(), POLLIN, 0}, {forRoom ? tty.descriptor : -1, POLLOUT, 0}}};
    const bool answered = pollOrRest(set, length);
    if (begun.interrupted())
        return ECANCELED;
    if (answered && (set[1].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0 && (set[1].revents & POLLOUT) == 0)
        return EIO; // full, and nobody is left to empty it
    return begun.deadline.passed() ? timeOver : goOn;
}

constexpr int64_t bitsPerByte = 10;

int64_t nowNanoseconds() noexcept {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

/// Nanoseconds that bytes take on the line.
int64_t lineTime(const TtyDevice& tty, int64_t bytes) noexcept {
    return bytes * bitsPerByte * 1'000'000'000 / tty.bitRate;
}

/// A transmitter that does not tell is busy for the time that the bytes take.
void noteSent(TtyDevice& tty, ssize_t bytes) noexcept {
    if (tty.tellsTransmitter || tty.isPty || bytes == 0)
        return;
    tty.lineBusyUntil = std::max(nowNanoseconds(), tty.lineBusyUntil.load()) + lineTime(tty, bytes);
}

/// One write call. Bytes taken, or a negative error number; 0: there is no room.
int32_t writeOnce(TtyDevice& tty, const uint8_t* bytes, int32_t count) {
    const ssize_t result = ::write(tty.descriptor, bytes, static_cast<std::size_t>(count));
    if (result >= 0) {
        noteSent(tty, result);
        return static_cast<int32_t>(result);
    }
    if (errno == EAGAIN || errno == EINTR)
        return 0;
    if (isGone(errno))
        setHungUp(tty, true);
    return -errno;
}

/// Hands bytes to the kernel until it has them all or the write is over. How many it took.
int32_t handOver(TtyDevice& tty, const uint8_t* bytes, int32_t count, const Begun& begun, int32_t& outcome) {
    int32_t handed = 0;
    outcome = goOn;
    while (handed < count && outcome == goOn) {
        if (heldByDsr(tty)) {
            outcome = pause(tty, begun, false, dsrStep);
            continue;
        }
        const int32_t taken = writeOnce(tty, bytes + handed, count - handed);
        if (taken < 0)
            outcome = -taken;
        else if (taken == 0)
            outcome = pause(tty, begun, true, noStep);
        else
            handed += taken;
    }
    return handed;
}

/// False while the last bytes are still in the transmitter, behind the queue.
bool transmitterEmpty(TtyDevice& tty) {
    uint32_t registers = 0;
    if (tty.isPty || !tty.tellsTransmitter)
        return true;
    if (ioctl(tty.descriptor, TIOCSERGETLSR, &registers) == 0)
        return (registers & TIOCSER_TEMT) != 0;
    tty.tellsTransmitter = false;
    return true;
}

/// Waits until the line has taken everything; goOn when it has.
int32_t drain(TtyDevice& tty, const Begun& begun) {
    while (true) {
        const int32_t queued = queuedOutput(tty);
        if (queued < 0)
            return -queued;
        if (queued == 0 && transmitterEmpty(tty))
            return begun.purged() ? ECANCELED : goOn;
        const uint64_t estimate = static_cast<uint64_t>(queued) * uint64_t{bitsPerByte} * 1000 / tty.bitRate;
        const auto step = static_cast<int32_t>(std::clamp<uint64_t>(estimate, 1, 20));
        if (const int32_t outcome = pause(tty, begun, false, step); outcome != goOn)
            return outcome;
    }
}

int32_t writeComplete(TtyDevice& tty, const uint8_t* bytes, int32_t count, int32_t& error) {
    const Begun begun(tty, count);
    int32_t outcome = goOn;
    const int32_t handed = handOver(tty, bytes, count, begun, outcome);
    if (outcome == goOn)
        outcome = drain(tty, begun);
    if (outcome == goOn)
        return count;
    error = outcome == timeOver ? ETIMEDOUT : outcome;
    return handed - begun.takeBack(handed);
}

} // namespace

void interruptWrites(TtyDevice& tty) noexcept {
    ++tty.interruptions;
    tty.interrupted = true;
    tty.interruption.set();
}

int32_t queuedOutput(const TtyDevice& tty) noexcept {
    int32_t queued = 0;
    if (tty.isPty || ioctl(tty.descriptor, TIOCOUTQ, &queued) == 0)
        return queued;
    return lacksFunction(errno) ? 0 : -errno;
}

void forgetDiscarded(TtyDevice& tty, int32_t queued) noexcept {
    const int64_t left = nowNanoseconds() + lineTime(tty, std::max(queued, 0));
    tty.lineBusyUntil = std::min(tty.lineBusyUntil.load(), left);
}

int32_t getTimeouts(void* device, ComHostTimeouts* timeouts) noexcept {
    TtyDevice& tty = of(device);
    MutexLock guard(tty.lock);
    *timeouts = tty.timeouts;
    return 1;
}

int32_t setTimeouts(void* device, const ComHostTimeouts* timeouts) noexcept {
    TtyDevice& tty = of(device);
    MutexLock guard(tty.lock);
    tty.timeouts = *timeouts;
    return 1;
}

int32_t write(void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) noexcept {
    TtyDevice& tty = of(device);
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    *error = 0;
    if (how != COM_HOST_WRITE_NOW)
        return writeComplete(tty, bytes, count, *error);
    if (heldByDsr(tty))
        return 0;
    const int32_t taken = writeOnce(tty, bytes, count);
    *error = std::max(-taken, 0);
    return std::max(taken, 0);
}

int32_t flush(void* device) noexcept {
    TtyDevice& tty = of(device);
    const int32_t outcome = drain(tty, Begun(tty, 0));
    return outcome == goOn ? 1 : outcome == timeOver ? -ETIMEDOUT : -outcome;
}

int32_t unsent(void* device) noexcept {
    TtyDevice& tty = of(device);
    const int32_t queued = std::max(queuedOutput(tty), 0);
    if (tty.isPty || tty.hungUp)
        return 0;
    if (tty.tellsTransmitter)
        return queued + (transmitterEmpty(tty) ? 0 : 1);
    const int64_t busy = tty.lineBusyUntil - nowNanoseconds();
    const int64_t left = busy <= 0 ? 0 : busy * tty.bitRate / (bitsPerByte * 1'000'000'000) + 1;
    return std::max(queued, static_cast<int32_t>(std::min<int64_t>(left, INT32_MAX)));
}

} // namespace brisolt::tty

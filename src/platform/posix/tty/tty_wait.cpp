// Reading from a tty and waiting for it, also for one whose far end has gone.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/mutex.h"
#include "platform/posix/brake.h"
#include "platform/posix/gated_poll.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

constexpr int32_t goneStep = 250; // milliseconds between two looks at a device that has gone away
constexpr int32_t dsrStep = 10;
constexpr int32_t inputStep = 20; // between two looks at an input queue that fills up
constexpr int32_t noStep = -1;
constexpr int32_t floodLimit = 65536; // bytes that one read takes when most of them are dropped
constexpr int16_t goneBits = POLLHUP | POLLERR | POLLNVAL;

int16_t pollBits(uint32_t events) {
    return static_cast<int16_t>(((events & COM_HOST_WAIT_READ) != 0 ? POLLIN : 0) |
                                ((events & COM_HOST_WAIT_WRITE) != 0 ? POLLOUT : 0));
}

int32_t bytesToRead(const TtyDevice& tty) {
    int32_t bytes = 0;
    return ioctl(tty.descriptor, FIONREAD, &bytes) == 0 ? bytes : 0;
}

/// What a poll's answer means. A device without a far end reports its hang-up always, and on a line that
/// was torn down reading and writing as well; only bytes that are really there count then.
uint32_t eventsOf(const TtyDevice& tty, uint32_t events, int16_t answer) {
    if ((answer & goneBits) != 0)
        return (events & COM_HOST_WAIT_READ) != 0 && bytesToRead(tty) > 0 ? COM_HOST_WAIT_READ : 0;
    return events & (((answer & POLLIN) != 0 ? COM_HOST_WAIT_READ : 0) |
                     ((answer & POLLOUT) != 0 ? COM_HOST_WAIT_WRITE : 0));
}

int16_t look(const TtyDevice& tty, uint32_t events) {
    pollfd self{tty.descriptor, pollBits(events), 0};
    return poll(&self, 1, 0) > 0 ? self.revents : int16_t{0};
}

int32_t shorter(int32_t left, int32_t step) {
    return step == noStep ? left : left < 0 ? step : std::min(left, step);
}

/// A wait in which nobody reads is the one in which the input queue fills up until DTR must hold the peer
/// off. A poll tells of its first byte only: from there on it is looked at, until the peer is held off.
int32_t guardInput(TtyDevice& tty, uint32_t events, pollfd& self) {
    if (!tty.dtrHoldsInput || (events & COM_HOST_WAIT_READ) != 0)
        return noStep;
    if (bytesToRead(tty) == 0) {
        self.events |= POLLIN;
        return noStep;
    }
    return holdPeerOff(tty) ? noStep : inputStep;
}

enum class Pause { over, ended, interrupted };

/// Sleeps, with or without the tty in the set, until it is over or somebody ends it.
Pause sleepOn(pollfd& self, int32_t wake, int32_t milliseconds) {
    std::array<pollfd, 2> set{{self, {wake, POLLIN, 0}}};
    if (!pollOrRest(set, milliseconds))
        return errno == EINTR ? Pause::interrupted : Pause::ended;
    self.revents = set[0].revents;
    return set[1].revents != 0 ? Pause::ended : Pause::over;
}

/// A step of the wait for a device that has gone away. Its hang-up would end every poll at once, so it
/// stays out of the set; it is looked at after the step, not before, since a read of it may fail although
/// the poll sees nothing wrong, and the caller would come back at once.
Pause waitWhileGone(TtyDevice& tty, uint32_t events, int32_t wake, int32_t left, uint32_t& holding) {
    const int16_t before = look(tty, events);
    holding = (before & goneBits) != 0 ? eventsOf(tty, events, before) : 0;
    if (holding != 0) // it left bytes behind
        return Pause::over;
    pollfd nothing{-1, 0, 0};
    // What a master's other end may do, open again, no torn-down line does.
    const bool forGood = !tty.isMaster && (before & goneBits) != 0;
    const Pause pause = sleepOn(nothing, wake, shorter(left, forGood ? noStep : goneStep));
    if (pause != Pause::over)
        return pause;
    const int16_t after = look(tty, events);
    setHungUp(tty, (after & goneBits) != 0);
    holding = eventsOf(tty, events, after);
    return pause;
}

/// Drops what the line state says is not for the reader.
int32_t filter(TtyDevice& tty, uint8_t* bytes, int32_t count) {
    MutexLock guard(tty.lock);
    if (tty.marked)
        count = tty.marks.undo(bytes, count,
                               replacesErrors(tty.line) ? std::optional(tty.line.errorChar) : std::nullopt);
    if ((tty.line.flags & COM_HOST_LINE_NULL_STRIP) != 0)
        count = static_cast<int32_t>(std::remove(bytes, bytes + count, uint8_t{0}) - bytes);
    return count;
}

} // namespace

bool pollOrRest(std::span<pollfd> set, int32_t milliseconds) noexcept {
    if (gatedPoll(set, milliseconds) >= 0)
        return true;
    brakeUnlessInterrupted(milliseconds);
    return false;
}

int32_t MarkFilter::undo(uint8_t* bytes, int32_t count, std::optional<uint8_t> errorChar) noexcept {
    constexpr uint8_t mark = 0xFF;
    if (seen_ == Seen::nothing && std::find(bytes, bytes + count, mark) == bytes + count)
        return count;
    int32_t kept = 0;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t byte = bytes[i];
        const Seen seen = seen_;
        seen_ = Seen::nothing;
        if (seen == Seen::brokenMark) {
            bytes[kept++] = errorChar.value_or(byte);
        } else if (seen == Seen::mark && byte == 0) {
            seen_ = Seen::brokenMark;
        } else if (seen == Seen::mark) {
            if (byte != mark && kept < i)
                bytes[kept++] = mark; // received before marking was switched on
            bytes[kept++] = byte;
        } else if (byte == mark) {
            seen_ = Seen::mark;
        } else {
            bytes[kept++] = byte;
        }
    }
    return kept;
}

namespace {

/// What the host gives: a count, 0 for nothing, or its negative error.
int32_t readUnfiltered(TtyDevice& tty, uint8_t* buffer, int32_t count) {
    if (tty.isCopy && (look(tty, COM_HOST_WAIT_READ) & POLLIN) == 0)
        return 0; // it might wait
    const ssize_t result = ::read(tty.descriptor, buffer, static_cast<std::size_t>(count));
    if (result < 0) {
        if (isGone(errno))
            setHungUp(tty, true);
        return isGone(errno) || errno == EAGAIN || errno == EINTR ? 0 : -errno;
    }
    if (result == 0) {
        setHungUp(tty, (look(tty, 0) & goneBits) !=
                           0); // an adopted tty may be set to answer so when it is merely empty
        return 0;
    }
    if (tty.dtrHoldsInput)
        holdPeerOff(tty);
    return static_cast<int32_t>(result);
}

} // namespace

int32_t read(void* device, void* buffer, int32_t count) noexcept {
    TtyDevice& tty = of(device);
    auto* bytes = static_cast<uint8_t*>(buffer);
    int32_t kept = readUnfiltered(tty, bytes, count);
    if (!tty.filtersInput || kept <= 0)
        return kept;
    int32_t room = count;
    int32_t got = kept;
    kept = filter(tty, bytes, got);
    // What was dropped has made room: a read that falls short has to mean that no more is there. A flood of
    // bytes to drop must not keep us here; the next of them will be told of, too.
    for (int32_t taken = got; got == room && kept < count && taken < floodLimit; taken += got) {
        room = count - kept;
        got = readUnfiltered(tty, bytes + kept, room);
        if (got <= 0)
            break;
        kept += filter(tty, bytes + kept, got);
    }
    return kept;
}

int32_t descriptor(void* device) noexcept {
    TtyDevice& tty = of(device);
    return tty.hungUp ? -1 : tty.descriptor; // of a device that has gone away it would be readable always
}

int32_t wait(void* device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept {
    TtyDevice& tty = of(device);
    const clock::Deadline deadline =
        milliseconds < 0
            ? clock::Deadline::never()
            : clock::Deadline::at(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds));
    while (true) {
        const bool held = (events & COM_HOST_WAIT_WRITE) != 0 && heldByDsr(tty);
        const uint32_t possible = held ? events & ~uint32_t{COM_HOST_WAIT_WRITE} : events;
        const int32_t left = deadline.realMillisecondsLeft();
        uint32_t holding = 0;
        Pause pause = Pause::over;
        const bool wasGone = tty.hungUp;
        if (wasGone) {
            pause = waitWhileGone(tty, possible, wake, left, holding);
        } else {
            pollfd self{tty.descriptor, pollBits(possible), 0};
            const int32_t step = held ? dsrStep : guardInput(tty, events, self);
            pause = sleepOn(self, wake, shorter(left, step));
            setHungUp(tty, (self.revents & goneBits) != 0);
            holding = eventsOf(tty, possible, self.revents);
        }
        if (holding != 0)
            return static_cast<int32_t>(holding);
        if (pause == Pause::interrupted)
            return -EINTR;
        if (pause == Pause::ended || tty.hungUp != wasGone ||
            deadline.passed()) // whoever waits wants to know
            return 0;
    }
}

} // namespace brisolt::tty

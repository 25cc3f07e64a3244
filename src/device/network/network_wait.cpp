// Waiting for a network line, also for one whose far end has gone.
#include <algorithm>
#include <cerrno>
#include <chrono>

#include "device/network/network_device.h"
#include "platform/mutex.h"

namespace brisolt::network {

namespace {

constexpr int32_t leftStep =
    250; ///< milliseconds between two looks at a lost line whose last bytes nobody reads

int32_t shorter(int32_t left, int32_t step) noexcept {
    return left < 0 ? step : std::min(left, step);
}

/// Nothing happens on a line that has gone. Whoever waited when it went wants to know, and one of them does.
int32_t waitForNothing(NetworkDevice& device, int32_t wake, int32_t milliseconds) noexcept {
    if (!device.goneTold.exchange(true))
        return 0;
    const uint32_t seen = streams::wait({.socket = -1, .signal = wake, .milliseconds = milliseconds});
    return (seen & streams::interrupted) != 0 ? -EINTR : 0;
}

bool holdsBytes(NetworkDevice& device) noexcept {
    if (device.kind.holdsBack()) {
        const MutexLock guard(device.mutex);
        if (!device.heldBack.empty() || device.stream.heldBack())
            return true;
    }
    return streams::bytesToRead(device.stream.socket()) > 0;
}

bool hasRoom(NetworkDevice& device) noexcept {
    const MutexLock guard(device.mutex);
    return device.heldBack.size() < device.heldBack.capacity();
}

/// The gate opens for more than bytes: for room, too, while something waits for that. Whether there are bytes.
bool isForReader(NetworkDevice& device) noexcept {
    if (!device.kind.holdsBack())
        return true;
    {
        const MutexLock guard(device.mutex);
        if (!device.roomWatched)
            return true;
        sendOutgoing(device);
    }
    return holdsBytes(device);
}

} // namespace

// The word that lets whoever is held off go on is among what comes. If he is no reader, it may be that there is none,
// and he takes in what comes himself.
uint32_t sleepFor(NetworkDevice& device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept {
    const bool forRead = (events & COM_HOST_WAIT_READ) != 0;
    const bool forRoom = (events & COM_HOST_WAIT_WRITE) != 0;
    const bool held = forRoom && device.suspended;
    const bool listens = held && !forRead && hasRoom(device);
    const uint32_t seen = streams::wait({.socket = device.stream.socket(),
                                         .gate = listens ? -1 : device.gate.descriptor(),
                                         .forRead = forRead || listens,
                                         .forWrite = forRoom && !held,
                                         .signal = wake,
                                         .permit = held ? device.resumed.descriptor() : -1,
                                         .milliseconds = milliseconds});
    if (!listens || (seen & streams::readable) == 0)
        return seen;
    takeIn(device);
    return seen & ~streams::readable;
}

int32_t wait(void* device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept {
    NetworkDevice& line = of(device);
    const clock::Deadline until =
        milliseconds < 0
            ? clock::Deadline::never()
            : clock::Deadline::at(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds));
    for (int32_t left = milliseconds;; left = until.realMillisecondsLeft()) {
        if (line.gone)
            return waitForNothing(line, wake, left);
        const uint32_t seen = sleepFor(line, events, wake, left);
        uint32_t holding = 0;
        if ((seen & streams::readable) != 0 && isForReader(line))
            holding |= COM_HOST_WAIT_READ;
        if ((seen & streams::writable) != 0)
            holding |= COM_HOST_WAIT_WRITE;
        if ((seen & streams::broken) != 0 && !holdsBytes(line)) {
            setGone(line);
            continue;
        }
        if ((seen & streams::interrupted) != 0)
            return -EINTR;
        if (holding != 0)
            return static_cast<int32_t>(holding);
        if ((seen & streams::signalled) != 0 || until.passed())
            return 0;
        if ((seen & streams::broken) != 0) // its poll would end at once
            streams::wait({.socket = -1, .signal = wake, .milliseconds = shorter(left, leftStep)});
    }
}

int32_t descriptor(void* device) noexcept {
    const NetworkDevice& line = of(device);
    if (line.gone)
        return -1;
    return line.kind.holdsBack() ? line.gate.descriptor() : line.stream.socket();
}

} // namespace brisolt::network

// Writes that wait until the connection has taken the bytes. What it has taken is sure to go, and counts.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "device/network/network_device.h"
#include "platform/mutex.h"
#include "platform/write_limit.h"

namespace brisolt::network {

namespace {

/// A write or flush that goes on.
class Begun {
public:
    Begun(NetworkDevice& device, int32_t count) noexcept : device_(device) {
        {
            const MutexLock guard(device.settingsMutex);
            limit_ = writeLimit(device.timeouts, count);
        }
        const MutexLock guard(device.writersMutex);
        interruptions_ = device.interruptions;
        // An earlier interruption is over when the last of the writes that it concerned is.
        if (device.writers++ == 0 && std::exchange(device.interrupted, false))
            device.interruption.clear();
    }
    Begun(const Begun&) = delete;
    Begun& operator=(const Begun&) = delete;
    ~Begun() {
        const MutexLock guard(device_.writersMutex);
        --device_.writers;
    }

    /// 0: it may go on; else why it is over.
    int32_t over() const noexcept {
        if (device_.gone)
            return ENODEV;
        const MutexLock guard(device_.writersMutex);
        if (device_.cancelled || device_.interruptions != interruptions_)
            return ECANCELED;
        return limit_.passed() ? ETIMEDOUT : 0;
    }
    /// Sleeps until there may be room, at most `step` real milliseconds, or until it is over.
    void pause(bool forRoom, int32_t step) const noexcept {
        const int32_t left = limit_.realMillisecondsLeft();
        const int32_t longest = step < 0 ? left : left < 0 ? step : std::min(left, step);
        const int32_t interruption = device_.interruption.descriptor();
        if (forRoom)
            sleepFor(device_, COM_HOST_WAIT_WRITE, interruption, longest);
        else
            streams::wait({.socket = -1, .signal = interruption, .milliseconds = longest});
    }

private:
    NetworkDevice& device_;
    clock::Deadline limit_;
    uint32_t interruptions_;
};

int32_t writeComplete(NetworkDevice& device, std::span<const uint8_t> bytes, int32_t& error) noexcept {
    const Begun begun(device, static_cast<int32_t>(bytes.size()));
    std::size_t taken = 0;
    while (taken < bytes.size()) {
        error = begun.over();
        if (error != 0)
            break;
        const int32_t now = writeNow(device, bytes.subspan(taken), error);
        taken += static_cast<std::size_t>(now);
        if (error != 0)
            break;
        if (now == 0)
            begun.pause(true, -1);
    }
    return static_cast<int32_t>(taken);
}

} // namespace

void interruptWrites(NetworkDevice& device) noexcept {
    const MutexLock guard(device.writersMutex);
    ++device.interruptions;
    device.interrupted = true;
    device.interruption.set();
}

int32_t write(void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) noexcept {
    *error = 0;
    if (buffer == nullptr || count <= 0)
        return 0;
    const std::span bytes(static_cast<const uint8_t*>(buffer), static_cast<std::size_t>(count));
    return how == COM_HOST_WRITE_NOW ? writeNow(of(device), bytes, *error)
                                     : writeComplete(of(device), bytes, *error);
}

// No host tells when the far end has confirmed everything, so it is asked, at first at once.
int32_t flush(void* device) noexcept {
    constexpr int32_t longestStep = 20;
    const Begun begun(of(device), 0);
    for (int32_t step = 1;; step = std::min(step * 2, longestStep)) {
        if (unsent(device) == 0)
            return of(device).gone ? -ENODEV : 1;
        if (const int32_t error = begun.over(); error != 0)
            return -error;
        begun.pause(false, step);
    }
}

} // namespace brisolt::network

#include "platform/signal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/posix/brake.h"
#include "platform/posix/gated_poll.h"

namespace brisolt {

Signal::Signal() noexcept : descriptor_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

Signal::~Signal() {
    if (descriptor_ >= 0)
        close(descriptor_);
}

void Signal::set() noexcept {
    if (descriptor_ >= 0)
        eventfd_write(descriptor_, 1);
}

void Signal::clear() noexcept {
    eventfd_t count = 0;
    if (descriptor_ >= 0)
        eventfd_read(descriptor_, &count);
}

namespace {

// Nobody waits on more than a device, a wake-up and a few of their like: room on the stack will do.
constexpr std::size_t mostWatches = 8;

bool takeResult(Watch& watch, short events) noexcept {
    watch.readable = (events & POLLIN) != 0;
    watch.writable = (events & POLLOUT) != 0;
    watch.hungUp = (events & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    return events != 0;
}

} // namespace

int32_t waitAny(std::span<Watch> watches, int32_t realMilliseconds) noexcept {
    watches = watches.first(std::min(watches.size(), mostWatches));
    std::array<pollfd, mostWatches> polled{};
    for (std::size_t i = 0; i < watches.size(); ++i) {
        polled[i].fd = watches[i].descriptor;
        polled[i].events =
            static_cast<short>((watches[i].forRead ? POLLIN : 0) | (watches[i].forWrite ? POLLOUT : 0));
    }
    int32_t found = gatedPoll({polled.data(), watches.size()}, realMilliseconds);
    if (found <= 0) {
        const bool interrupted = found < 0 && errno == EINTR;
        if (found < 0 && !interrupted)
            brake(realMilliseconds);
        for (Watch& watch : watches)
            takeResult(watch, 0);
        return interrupted ? -1 : 0;
    }
    int32_t happened = 0;
    for (std::size_t i = 0; i < watches.size(); ++i)
        happened += takeResult(watches[i], polled[i].revents);
    return happened;
}

} // namespace brisolt

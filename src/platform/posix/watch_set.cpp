#include "platform/watch_set.h"

#include <algorithm>
#include <array>

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "platform/posix/brake.h"

namespace brisolt {

WatchSet::WatchSet() noexcept : descriptor_(epoll_create1(EPOLL_CLOEXEC)) {}

WatchSet::~WatchSet() {
    if (usable())
        ::close(descriptor_);
}

bool WatchSet::add(int32_t descriptor, uint32_t tag) noexcept {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;
    event.data.u32 = tag;
    return epoll_ctl(descriptor_, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void WatchSet::remove(int32_t descriptor) noexcept {
    epoll_ctl(descriptor_, EPOLL_CTL_DEL, descriptor, nullptr);
}

bool WatchSet::wait(int32_t wake, int32_t realMilliseconds) noexcept {
    std::array<pollfd, 2> watched{{{descriptor_, POLLIN, 0}, {wake, POLLIN, 0}}};
    int found = poll(watched.data(), watched.size(), realMilliseconds);
    if (found < 0)
        brakeUnlessInterrupted(realMilliseconds);
    return found > 0 && watched[0].revents != 0;
}

std::span<WatchSet::Event> WatchSet::collect(std::span<Event> events) noexcept {
    std::array<epoll_event, 64> raw;
    std::size_t most = std::min(raw.size(), events.size());
    int got = epoll_wait(descriptor_, raw.data(), static_cast<int>(most), 0);
    if (got < 0) // whoever was told that there is something comes back at once
        brakeUnlessInterrupted(-1);
    std::size_t count = got < 0 ? 0 : static_cast<std::size_t>(got);
    std::transform(raw.begin(), raw.begin() + count, events.begin(), [](const epoll_event& event) {
        return Event{.tag = event.data.u32, .trouble = (event.events & (EPOLLHUP | EPOLLERR)) != 0};
    });
    return events.first(count);
}

} // namespace brisolt

#include "platform/watch_set.h"

#include <algorithm>
#include <array>

#include <sys/epoll.h>
#include <unistd.h>

namespace brisolt {

WatchSet::WatchSet() noexcept : descriptor_(epoll_create1(EPOLL_CLOEXEC)) {}

WatchSet::~WatchSet() {
    if (usable())
        ::close(descriptor_);
}

bool WatchSet::add(int32_t descriptor, uint32_t tag) noexcept {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = tag;
    return epoll_ctl(descriptor_, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

void WatchSet::remove(int32_t descriptor) noexcept {
    epoll_ctl(descriptor_, EPOLL_CTL_DEL, descriptor, nullptr);
}

std::span<uint32_t> WatchSet::wait(std::span<uint32_t> tags, int32_t realMilliseconds) noexcept {
    std::array<epoll_event, 64> events;
    std::size_t most = std::min(events.size(), tags.size());
    int got = epoll_wait(descriptor_, events.data(), static_cast<int>(most), realMilliseconds);
    std::size_t count = got < 0 ? 0 : static_cast<std::size_t>(got);
    std::transform(events.begin(), events.begin() + count, tags.begin(),
                   [](const epoll_event& event) { return event.data.u32; });
    return tags.first(count);
}

} // namespace brisolt

#include "waiting.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <thread>

#include <sys/eventfd.h>

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

constexpr auto hostsRest = 20ms;

int millisecondsLeft(Until until) noexcept {
    constexpr int64_t longest = 3'600'000;
    if (!until)
        return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*until - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, longest));
}

} // namespace

Until sooner(Until one, Until other) noexcept {
    return one && other ? std::min(*one, *other) : one ? one : other;
}

bool waitFor(std::span<pollfd> entries, Until until) noexcept {
    int happened = -1;
    do
        happened = poll(entries.data(), entries.size(), millisecondsLeft(until));
    while (happened < 0 && errno == EINTR);
    if (happened >= 0)
        return happened > 0;
    std::this_thread::sleep_until(*sooner(until, Clock::now() + hostsRest));
    for (pollfd& entry : entries)
        entry.revents = entry.fd < 0 ? short{0} : entry.events;
    return true;
}

bool Wake::open() noexcept {
    if (!event_)
        event_ = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return static_cast<bool>(event_);
}

void Wake::call() noexcept {
    called_ = true;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(event_.get(), &one, sizeof one); // full is called, too
}

void Wake::clear() noexcept {
    uint64_t calls = 0;
    [[maybe_unused]] const ssize_t taken = read(event_.get(), &calls, sizeof calls); // none is fine, too
    called_ = false;
}

ssize_t countOf(ssize_t result) noexcept {
    const bool merelyNotReady = errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
    return result >= 0 ? result : merelyNotReady ? 0 : -1;
}

} // namespace brisolt::service

#include "platform/posix/forked.h"

#include <array>
#include <atomic>

#include <pthread.h>
#include <unistd.h>

namespace brisolt::forked {

namespace {

// One for each port and some for devices without one; what finds no place stays open in a child.
constexpr std::size_t most = 1024;
constexpr int32_t none = -1;
constexpr int32_t unused = 0; // so that the array starts as zeros; the standard input is no device of ours

std::array<std::atomic<int32_t>, most> descriptors;
std::array<std::atomic<void (*)()>, 32> beginnings; // one for each file that has a state of its own
constinit std::atomic<bool> registered{false};

// In the child of a program with many threads nothing may be called that takes a lock.
void beginAnew() noexcept {
    for (std::atomic<int32_t>& place : descriptors)
        if (int32_t descriptor = place.exchange(unused); descriptor != unused)
            close(descriptor == none ? 0 : descriptor);
    for (const std::atomic<void (*)()>& beginning : beginnings)
        if (void (*begin)() = beginning.load())
            begin();
}

void watchForks() noexcept {
    if (!registered.exchange(true))
        pthread_atfork(nullptr, nullptr, beginAnew);
}

/// The standard input's number is kept as another.
int32_t shown(int32_t descriptor) noexcept {
    return descriptor == 0 ? none : descriptor;
}

} // namespace

void beginAnewInChild(void (*begin)()) noexcept {
    watchForks();
    for (std::atomic<void (*)()>& place : beginnings) {
        void (*there)() = nullptr;
        if (place.compare_exchange_strong(there, begin) || there == begin)
            return;
    }
}

void closeInChild(int32_t descriptor) noexcept {
    watchForks();
    for (std::atomic<int32_t>& place : descriptors) {
        int32_t free = unused;
        if (place.compare_exchange_strong(free, shown(descriptor)))
            return;
    }
}

void forget(int32_t descriptor) noexcept {
    for (std::atomic<int32_t>& place : descriptors) {
        int32_t kept = shown(descriptor);
        if (place.compare_exchange_strong(kept, unused))
            return;
    }
}

} // namespace brisolt::forked

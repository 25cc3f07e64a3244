#include "platform/memory.h"

#include <atomic>
#include <cstdlib>
#include <limits>

#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#define BRISOLT_WATCHED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define BRISOLT_WATCHED_HEAP 1
#endif
#endif
#ifndef BRISOLT_WATCHED_HEAP
#define BRISOLT_WATCHED_HEAP 0
#endif

namespace brisolt::memory {

namespace {

constexpr std::size_t most = std::numeric_limits<std::ptrdiff_t>::max();

// Counts down to 0; the last `callsToFail` of the calls that it counts fail.
std::atomic<int64_t> callsCounted{0};
std::atomic<int64_t> callsToFail{0};

bool failThisCall() noexcept {
    int64_t left = callsCounted.load();
    while (left > 0 && !callsCounted.compare_exchange_weak(left, left - 1)) {
    }
    return left > 0 && left <= callsToFail.load();
}

} // namespace

void* allocateZeroed(std::size_t size) noexcept {
    if (size == 0 || size > most || failThisCall())
        return nullptr;
    // The address sanitizer sees the edges of heap blocks only.
    if constexpr (BRISOLT_WATCHED_HEAP)
        return std::calloc(1, size);
    void* block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : block;
}

void release(void* block, std::size_t size) noexcept {
    if (!block)
        return;
    if constexpr (BRISOLT_WATCHED_HEAP)
        std::free(block);
    else
        munmap(block, size);
}

void* allocateSmall(std::size_t size) noexcept {
    return size == 0 || size > most || failThisCall() ? nullptr : std::calloc(1, size);
}

void releaseSmall(void* block) noexcept {
    std::free(block);
}

void failAllocations(int32_t skip, int32_t count) noexcept {
    callsCounted = 0;
    callsToFail = count;
    if (count > 0)
        callsCounted = int64_t{skip} + count;
}

} // namespace brisolt::memory

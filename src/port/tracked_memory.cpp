#include "port/tracked_memory.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <type_traits>

#include "platform/memory.h"
#include "platform/mutex.h"
#include "port/port_table.h"

namespace brisolt {

/// Stands in front of the caller's bytes.
struct alignas(std::max_align_t) TrackedBlocks::Header {
    Header* older;
};

void TrackedBlocks::releaseAll() noexcept {
    while (newest != nullptr) {
        Header* older = newest->older;
        memory::releaseSmall(newest);
        newest = older;
    }
    count = 0;
}

namespace tracked {

namespace {

struct Pool {
    Mutex mutex;
    TrackedBlocks blocks GUARDED_BY(mutex);
};

// Made by the compiler and without a destructor: threads may use them before main and after it.
static_assert(std::is_trivially_destructible_v<Pool>);
constinit std::array<Pool, lastPort + 1> pools;

Pool& pool(int32_t number) noexcept {
    return pools[static_cast<std::size_t>(number)];
}

} // namespace

void forget(int32_t number) noexcept {
    if (!validPort(number))
        return;
    MutexLock guard(pool(number).mutex);
    pool(number).blocks = {};
}

void* allocate(int32_t number, uint32_t size) noexcept {
    if (!validPort(number))
        return nullptr;
    std::size_t whole = sizeof(TrackedBlocks::Header) + size;
    auto* header = static_cast<TrackedBlocks::Header*>(memory::allocateSmall(whole));
    if (header == nullptr)
        return nullptr;
    MutexLock guard(pool(number).mutex);
    TrackedBlocks& blocks = pool(number).blocks;
    header->older = blocks.newest;
    blocks.newest = header;
    ++blocks.count;
    return header + 1;
}

int32_t release(int32_t number, void* address) noexcept {
    if (!validPort(number))
        return -1;
    if (address == nullptr)
        return 0;
    MutexLock guard(pool(number).mutex);
    TrackedBlocks& blocks = pool(number).blocks;
    for (TrackedBlocks::Header** link = &blocks.newest; *link != nullptr; link = &(*link)->older) {
        TrackedBlocks::Header* header = *link;
        if (header + 1 != address)
            continue;
        *link = header->older;
        --blocks.count;
        memory::releaseSmall(header);
        return 0;
    }
    return -1;
}

int32_t releaseAll(int32_t number) noexcept {
    if (!validPort(number))
        return -1;
    detach(number).releaseAll();
    return 1;
}

uint32_t outstanding(int32_t number) noexcept {
    if (!validPort(number))
        return 0;
    MutexLock guard(pool(number).mutex);
    return pool(number).blocks.count;
}

TrackedBlocks detach(int32_t number) noexcept {
    MutexLock guard(pool(number).mutex);
    TrackedBlocks taken = pool(number).blocks;
    pool(number).blocks = {};
    return taken;
}

} // namespace tracked

} // namespace brisolt

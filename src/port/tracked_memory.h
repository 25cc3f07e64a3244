// Tracked memory: a pool of blocks per port number, from which everything that belongs to a port is taken,
// so that its close releases it all. The pool exists whether the port is open or not.
#pragma once

#include <cstdint>

namespace brisolt {

/// A list of tracked blocks, newest first.
struct TrackedBlocks {
    struct Header;
    Header* newest = nullptr;
    uint32_t count = 0;
    void releaseAll() noexcept;
};

namespace tracked {
void forget(int32_t number) noexcept;
void* allocate(int32_t number, uint32_t size) noexcept;
int32_t release(int32_t number, void* address) noexcept;
int32_t releaseAll(int32_t number) noexcept;
uint32_t outstanding(int32_t number) noexcept;
/// Takes the pool's blocks out: a close frees what belonged to its own life of the number, however soon
/// the number is opened again.
TrackedBlocks detach(int32_t number) noexcept;
} // namespace tracked

} // namespace brisolt

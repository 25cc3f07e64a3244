// Zero-filled memory for the blocks of a port: pages that nobody has touched cost nothing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace brisolt::memory {

void* allocateZeroed(std::size_t size) noexcept; ///< null when there is none
void release(void* block, std::size_t size) noexcept;

/// The same for small things that come and go.
void* allocateSmall(std::size_t size) noexcept;
void releaseSmall(void* block) noexcept;

/// Tests only: after `skip` more successful allocations the next `count` fail (count 0: none).
void failAllocations(int32_t skip, int32_t count) noexcept;

} // namespace brisolt::memory

// Bytes in the order in which they came, in room that is set aside beforehand: adding to it allocates nothing,
// so that it cannot fail. Room in which no byte has been yet costs no memory.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

#include "platform/memory.h"

namespace brisolt {

class ByteRing {
public:
    ByteRing() noexcept = default;
    ByteRing(const ByteRing&) = delete;
    ByteRing& operator=(const ByteRing&) = delete;
    ~ByteRing() { memory::release(bytes_, capacity_); }

    /// Room for `capacity` bytes in all; what the ring holds stays. False without the memory for it, and then
    /// nothing has changed. Room is never given back.
    bool reserve(std::size_t capacity) noexcept {
        if (capacity <= capacity_)
            return true;
        auto* const larger = static_cast<uint8_t*>(memory::allocateZeroed(capacity));
        if (larger == nullptr)
            return false;
        const std::size_t held = size_;
        read({larger, held});
        memory::release(std::exchange(bytes_, larger), std::exchange(capacity_, capacity));
        first_ = 0;
        size_ = held;
        return true;
    }

    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::size_t capacity() const noexcept { return capacity_; }

    /// There must be room for what is added.
    void push(uint8_t byte) noexcept {
        bytes_[wrapped(first_ + size_)] = byte;
        ++size_;
    }
    void append(std::span<const uint8_t> bytes) noexcept {
        if (bytes.empty())
            return;
        const std::size_t at = wrapped(first_ + size_);
        const std::size_t before = std::min(bytes.size(), capacity_ - at); // the end of the storage
        std::memcpy(&bytes_[at], bytes.data(), before);
        if (before < bytes.size())
            std::memcpy(bytes_, bytes.data() + before, bytes.size() - before);
        size_ += bytes.size();
    }

    /// The oldest bytes, as many as lie side by side.
    std::span<const uint8_t> front() const noexcept {
        return {bytes_ + first_, std::min(size_, capacity_ - first_)};
    }
    /// Takes the oldest `count` out, of which there must be so many.
    void drop(std::size_t count) noexcept {
        size_ -= count;
        first_ = size_ == 0 ? 0 : wrapped(first_ + count);
    }
    /// Takes the oldest out, as many as fit. How many.
    std::size_t read(std::span<uint8_t> to) noexcept {
        std::size_t taken = 0;
        while (taken < to.size() && !empty()) {
            const std::size_t part = std::min(front().size(), to.size() - taken);
            std::memcpy(to.data() + taken, front().data(), part);
            drop(part);
            taken += part;
        }
        return taken;
    }
    void clear() noexcept { drop(size_); }

private:
    std::size_t wrapped(std::size_t at) const noexcept { return at < capacity_ ? at : at - capacity_; }

    uint8_t* bytes_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t first_ = 0;
    std::size_t size_ = 0;
};

} // namespace brisolt

// A field that one thread writes and another reads without a lock. It is a plain value in memory, so that
// a record full of them starts as zero-filled pages; every access is atomic.
#pragma once

#include <atomic>

namespace brisolt {

template <class T> struct Shared {
    T raw;

    T load(std::memory_order order = std::memory_order_acquire) const noexcept {
        return std::atomic_ref<T>(const_cast<T&>(raw)).load(order);
    }
    void store(T value, std::memory_order order = std::memory_order_release) noexcept {
        std::atomic_ref<T>(raw).store(value, order);
    }
    T exchange(T value) noexcept { return std::atomic_ref<T>(raw).exchange(value); }
    T orIn(T bits) noexcept { return std::atomic_ref<T>(raw).fetch_or(bits); }
    T andIn(T bits) noexcept { return std::atomic_ref<T>(raw).fetch_and(bits); }
    T operator=(T value) noexcept {
        store(value);
        return value;
    }
    operator T() const noexcept { return load(); }
};

} // namespace brisolt

// An object that everybody may use until the very end of the program, and that needs no memory which might not
// be had: it stands in static storage and is never destroyed, since threads outlive the program's statics.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>

namespace brisolt {

template <class T> class Lasting {
    static_assert(std::is_nothrow_default_constructible_v<T>, "what throws here ends the program");

public:
    Lasting() noexcept { ::new (bytes_) T; }
    Lasting(const Lasting&) = delete;
    Lasting& operator=(const Lasting&) = delete;
    /// In a child (platform/forked.h): what it held is left to lie.
    void beginAnew() noexcept { ::new (bytes_) T; }
    T& operator*() noexcept { return *std::launder(reinterpret_cast<T*>(bytes_)); }

private:
    alignas(T) std::byte bytes_[sizeof(T)];
};

} // namespace brisolt

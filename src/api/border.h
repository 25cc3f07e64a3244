// The border of the library: every exported function that works on a port goes through onPort, which holds
// the port for the length of the call and lets no exception out; those without a port that may throw inside
// go through guarded.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "api/export.h"
#include "platform/error_text.h"
#include "port/port_table.h"

namespace brisolt {

/// f(), or `otherwise` when memory runs out inside.
template <class F> auto guarded(decltype(std::declval<F>()()) otherwise, F&& f) noexcept {
    try {
        return f();
    } catch (...) {
        return otherwise;
    }
}

/// The same; the error text then says what there was no memory for.
template <class F>
auto guarded(decltype(std::declval<F>()()) otherwise, std::initializer_list<std::string_view> why,
             F&& f) noexcept {
    try {
        return f();
    } catch (...) {
        setErrorTextFrom(why);
        return otherwise;
    }
}

/// f(port) with a hold on the open port of that number; `otherwise` for a bad or closed port, and when
/// memory runs out inside.
template <class F>
auto onPort(int32_t number, decltype(std::declval<F>()(std::declval<Port&>())) otherwise, F&& f) noexcept {
    HeldPort port(number);
    if (!port)
        return otherwise;
    return guarded(otherwise, [&] { return f(*port); });
}

} // namespace brisolt

// What a thread owns of the library goes when the thread ends. A thread_local object would do, were it not
// for other thread_local destructors, which may still call the library: after its own destructor such an
// object must not be touched. So the owners keep a plain pointer, make the object on first use (again after
// its end, if need be) and register each one's end here.
#pragma once

#include <cxxabi.h>

extern "C" void* __dso_handle __attribute__((visibility("hidden"))); // NOLINT(bugprone-reserved-identifier)

namespace brisolt {

/// Calls function(argument) when the calling thread ends, the latest registered first. Registering from
/// inside such a call works too.
inline void atThreadEnd(void (*function)(void*), void* argument) noexcept {
    abi::__cxa_thread_atexit(function, argument, static_cast<void*>(&__dso_handle));
}

} // namespace brisolt

// What a thread owns of the library goes when the thread ends. A thread_local object would do, were it not for
// two things: other thread_local destructors may still call the library, and after its own destructor such an
// object must not be touched; and where its destructor cannot be registered, the C library ends the program.
// So the owners keep a plain pointer, make the object on first use (again after its end, if need be) and
// register each one's end here.
#pragma once

namespace brisolt {

/// Calls function(argument) when the calling thread ends, the latest registered first. Registering from
/// inside such a call works too. False when the host has no room for it: then nobody would ever clean up, and
/// the owner has to do without. The program's first thread ends with the program, and nothing is called.
bool atThreadEnd(void (*function)(void*), void* argument) noexcept;

} // namespace brisolt

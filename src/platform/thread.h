// Threads of the library's own. They are never joined: whoever must know that one has ended is told by it.
#pragma once

#include <cstdint>

namespace brisolt::thread {

/// What a thread is to do. The name is a constant of the program's.
struct Task {
    void (*function)(void*) = nullptr;
    void* argument = nullptr;
    const char* name = nullptr;
};

/// Starts function(argument) on a thread of its own with all signals blocked (signals belong to the
/// program). False when the host has no thread for us, which the error text tells; function then never runs.
bool start(void (*function)(void*), void* argument, const char* name) noexcept;
/// The same with a task that stays where it is until its function runs: the new thread then needs no memory, and
/// a thread that never asks for any costs the program some less.
bool start(const Task& task) noexcept;

/// The calling thread's identifier, as the host shows it (never 0).
uint32_t currentId() noexcept;

enum class Priority { lowest, belowNormal, normal, aboveNormal, highest, timeCritical };
/// Best effort: a host that refuses the priority leaves the thread as it was.
void setPriority(uint32_t threadId, Priority priority) noexcept;

/// What is to be done at the end of a thread; each such object is a thread_local.
///
/// What a thread owns of the library goes when the thread ends. A thread_local object with a destructor would do,
/// were it not for two things: other such destructors may still call the library, and after its own one such an
/// object must not be touched; and where its destructor cannot be registered, the C library ends the program. So
/// the owners keep a plain pointer, make the object on first use (again after its end, if need be) and register
/// its end.
struct End {
    void (*function)();
    End* earlier = nullptr;
    bool registered = false;
};

/// Calls end.function when the calling thread ends, the latest registered first; from inside such a call, too.
/// False when the host has no room for it: then nobody would ever clean up, and the owner has to do without. The
/// program's first thread ends with the program, and nothing is called.
bool atEnd(End& end) noexcept;

/// Tests only: the next `count` starts fail.
void failStarts(int32_t count) noexcept;

} // namespace brisolt::thread

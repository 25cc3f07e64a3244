// Threads of the library's own. They are never joined: whoever must know that one has ended is told by it.
#pragma once

#include <cstdint>

namespace brisolt::thread {

/// Starts function(argument) on a thread of its own with all signals blocked (signals belong to the
/// program). False when the host has no thread for us, which the error text tells; function then never runs.
bool start(void (*function)(void*), void* argument, const char* name) noexcept;

/// The calling thread's identifier, as the host shows it (never 0).
uint32_t currentId() noexcept;

enum class Priority { lowest, belowNormal, normal, aboveNormal, highest, timeCritical };
/// Best effort: a host that refuses the priority leaves the thread as it was.
void setPriority(uint32_t threadId, Priority priority) noexcept;

/// Calls function(argument) when the calling thread ends, the latest registered first. False when the host has
/// no room for it; then it is never called.
bool atEnd(void (*function)(void*), void* argument) noexcept;

/// Tests only: the next `count` starts fail.
void failStarts(int32_t count) noexcept;

} // namespace brisolt::thread

// Message queues of threads, windows, typed characters and the quit request.
#pragma once

#include <cstdint>
#include <memory>

#include "brisolt_host.h"

namespace brisolt::message {

// ---- the calling thread's queue
bool quitPending() noexcept;
/// True while take() would give a message (shared windows included). Costs no system call and no lock
/// when nothing was ever posted.
bool waiting() noexcept;
/// Removes the next message; never waits, never reports the quit request.
bool take(ComHostMessage& message) noexcept;
/// The message taken last will not be dispatched: its shared window is anybody's again.
void letGo() noexcept;
/// Runs the window's function; false when the message has no window.
bool dispatch(const ComHostMessage& message) noexcept;
/// Removes the next message, else the quit request. 1 a message, 0 none, -1 quit.
int32_t next(ComHostMessage& message) noexcept;
int32_t descriptor() noexcept;

// ---- a thread that is yet to start
/// Where its queue will stand, so that the thread needs no memory of its own for it.
struct Place;
std::shared_ptr<Place> makePlace() noexcept; ///< null: no memory
void giveThisThread(Place& place) noexcept;

// ---- any thread
bool postToWindow(int32_t window, uint32_t message, uintptr_t first, intptr_t second) noexcept;
bool postToThread(uint32_t thread, uint32_t message, uintptr_t first, intptr_t second) noexcept;
bool postQuit(uint32_t thread) noexcept;
bool windowExists(int32_t window) noexcept;
bool threadExists(uint32_t thread) noexcept;
int32_t createWindow(ComHostWindowFunc function, void* context, bool shared) noexcept;
bool destroyWindow(int32_t window) noexcept;

} // namespace brisolt::message

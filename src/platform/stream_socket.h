// Connections to other machines: non-blocking, closed on exec and in children, and without signals.
#pragma once

#include <cstdint>
#include <string>

#include "platform/clock.h"

namespace brisolt::streams {

/// Connects to a port of a host, whose addresses are tried one after the other, until then. The socket, or a negative
/// error number: then `error` says what has failed.
int32_t connect(const std::string& host, const std::string& port, const clock::Deadline& until,
                std::string& error);
/// What was written and has not left yet goes on its way all the same.
void close(int32_t socket) noexcept;

/// Bytes, 0 for none now, or a negative error number: the far end's close is one, too.
int32_t read(int32_t socket, void* buffer, int32_t count) noexcept;
/// Bytes taken, 0 for no room now, or a negative error number.
int32_t write(int32_t socket, const void* buffer, int32_t count) noexcept;
int32_t bytesToRead(int32_t socket) noexcept;
/// Bytes that the far end's host has not confirmed yet.
int32_t unconfirmed(int32_t socket) noexcept;

enum : uint32_t { readable = 1, writable = 2, signalled = 4, broken = 8, interrupted = 16 };
/// What a wait looks at. Descriptors below 0 are skipped.
struct Wait {
    int32_t socket;
    int32_t gate = -1; ///< polls readable in the socket's place
    bool forRead = false;
    bool forWrite = false;
    int32_t signal = -1;       ///< ends the wait when it is readable
    int32_t permit = -1;       ///< so does this one, which is told by nothing else
    int32_t milliseconds = -1; ///< of real time; -1: no limit
};
/// What holds; 0 when the time is over. `broken`: the far end has closed, or the connection is lost; bytes may be left.
/// A wait for neither bytes nor room hears of a lost connection alone.
uint32_t wait(const Wait& what) noexcept;

/// One descriptor for a socket and what is held back of it: readable when the socket is, while bytes were taken off
/// the socket and not yet read, and when there is room for what has not left. Whoever sleeps on it already hears of
/// that, too.
class Gate {
public:
    Gate() noexcept = default;
    ~Gate();
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    bool open(int32_t socket) noexcept;
    int32_t descriptor() const noexcept { return descriptor_; }
    void showHeldBack(bool any) noexcept;
    void watchRoom(bool on) noexcept;

private:
    int32_t socket_ = -1;
    int32_t descriptor_ = -1;
    int32_t heldBack_ = -1;
};

} // namespace brisolt::streams

// Waiting. Every wait of the library is made of one sleep: until the port has news (bytes, a cancel, its
// close), the calling thread has a message, or a moment has come. What a wait does with the news stands in
// its own loop.
#pragma once

#include <cstdint>

#include "platform/clock.h"
#include "port/port.h"

namespace brisolt {

/// What ends a sleep beside the port's own events and the deadline.
struct WaitFor {
    bool bytes = false;    ///< takes them off the device itself when that is quicker
    bool direct = false;   ///< the bytes, into the caller's own buffer: `Slept` tells of them
    bool room = false;     ///< for bytes that the caller hands the device itself, its turn to do so
    bool messages = false; ///< of the calling thread
    bool quit = false;     ///< a request to quit, which stays pending
    bool signals = false;  ///< a signal handler that runs on the calling thread
};

/// How a sleep has ended, beside what the port itself tells.
struct Slept {
    bool bytesThere = false;  ///< on the device, for the caller to take
    bool roomThere = false;   ///< on the device, for the caller to fill
    bool interrupted = false; ///< by a signal handler
};

/// Sleeps until there may be something to look at. `seen` is the port's event count from before the caller
/// looked at its conditions. May return early.
Slept sleepOnPort(Port& port, uint32_t seen, WaitFor what, const clock::Deadline& until);

/// A moment's rest for who was told of bytes or room and then got none: not every device keeps its promise, and
/// none may keep a caller running. News of the port ends it.
void restAfterBrokenPromise(Port& port, uint32_t seen) noexcept;

/// Whether the calling thread has messages that a look at the port's escape would handle. A function in its
/// place handles none, and a quit request holds them back: then nobody should be woken for them.
bool messagesToPump(const Port& port) noexcept;

/// ComEscape: 1 escape or quit, 0 no, -1 not open; closed meanwhile: -1 by a message, else 1.
int32_t checkEscape(Port& port, int32_t character);
/// The same for a wait that has yield on, else 0.
int32_t checkEscapeIfYielding(Port& port);
/// ComServiceMessagePump.
int32_t pumpMessages();
/// Lets messages through until a moment has come, without a port that could end it. A request to quit holds
/// the messages back and stays pending.
void pumpMessagesUntil(const clock::Deadline& until);

/// ComSleep and ComSleepMS.
int32_t sleepMilliseconds(Port& port, int64_t milliseconds);

/// The length of a pause given in hundredths of a second: the tick counter moves on after it, even when it
/// is none. Less than none is none.
uint32_t pauseLength(int32_t hundredths) noexcept;
/// A plain pause that only the port's close ends.
void pause(Port& port, uint32_t milliseconds);
/// A pause that lets messages through. 1 time over, -1 quit requested or port closed.
int32_t pumpPause(Port& port, uint32_t milliseconds);
/// The pause that the port's yield asks for.
int32_t yieldPause(Port& port, uint32_t milliseconds);

void clearCancel(Port& port) noexcept;
bool cancelled(const Port& port) noexcept;
/// The port closes, or the call that runs on it is cancelled.
bool stopped(const Port& port) noexcept;
/// A pause that both end; false then.
bool pauseUnlessStopped(Port& port, uint32_t milliseconds);
void cancel(Port& port) noexcept;

/// The earliest moment a wait must look again although nothing told it to: an escape function of the
/// caller's, or bytes that come from a driver function, cannot wake anybody.
clock::Deadline nextLook(const Port& port, WaitFor what, const clock::Deadline& until) noexcept;

} // namespace brisolt

// Signals, as something that a command can wait for.
//
// A thread takes them, so that nothing is done inside a handler: it asks the main thread to quit, which ends every
// wait of the library and makes its message descriptor readable. A command that gets stuck all the same (in a
// write to an output that nobody reads) is ended after four seconds as the signal would have ended it.
#pragma once

namespace interruption {

/// Before any other thread is started. The calling thread is the one that is asked to quit.
void begin();

/// Whether a signal has asked for the end.
bool asked();

/// Ends the program as the signal does that asked for it, so that a shell sees it; else returns.
void obey();

/// For a command that has a code of its own for it: the program ends with that.
void forget();

/// Stops the program as Ctrl-Z does, with the terminal as it was before.
void suspend();

/// In a child that is to run another program: signals as they were before `begin`. For posix_spawn.
const void* originalMask();

} // namespace interruption

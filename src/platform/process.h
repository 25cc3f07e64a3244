// Starting programs and running command lines.
#pragma once

#include <cstdint>

namespace brisolt::process {

/// Starts program with up to two arguments (a null one ends the list) and does not wait for it; nobody
/// has to reap it. The library's descriptors do not reach it.
void startDetached(const char* program, const char* argument1, const char* argument2) noexcept;

/// Runs a script of the shell with one argument ($1) and waits for its end. Whether it wrote anything to its
/// standard output. How the program treats the ends of its children makes no difference.
bool answers(const char* script, const char* argument) noexcept;

/// The runtime library's system facility, result unchanged.
int32_t runCommand(const char* commandLine) noexcept;

/// Flushes every buffered output stream of the process. Waits a moment only for one that another thread is
/// reading from.
void flushStreams() noexcept;

} // namespace brisolt::process

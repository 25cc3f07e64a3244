// The progress record of a port: how far the file transfer on it has come. Its address is in callers' hands,
// so its layout is the interface's; the library's own reads and writes of it never meet half-way.
#pragma once

#include <cstdint>

#include "platform/mutex.h"
#include "port/port.h"

namespace brisolt::progress {

/// Outcomes of a transfer that runs on a thread of its own (fileCompletionState).
inline constexpr uint32_t running = 10000;
inline constexpr uint32_t finished = 10001;
inline constexpr uint32_t failed = 10002;

/// use(record) with nobody else of the library at it. The numbers in it are not aligned, so they cannot be
/// atomics of their own.
template <class Use> auto withRecord(Port& port, Use use) {
    MutexLock guard(port.showMutex);
    return use(port.workArea->show);
}

void clear(Port& port);
void addBytes(Port& port, uint32_t count);
void setCompletion(Port& port, uint32_t outcome);

/// Longer names are cut.
void setName(Port& port, const char* name);
void setTargetName(Port& port, const char* name);
/// The name, or what stands for none, in a buffer of 260 bytes.
void copyName(Port& port, char* buffer);
void copyTargetName(Port& port, char* buffer);
/// The name's last component, at most 200 bytes with its terminator.
void copyFilePart(Port& port, char* buffer);

} // namespace brisolt::progress

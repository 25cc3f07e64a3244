// How a line ends: at once for the program, in its own time for the modem.
#pragma once

#include <mutex>

#include "switchboard.h"

namespace brisolt::service {

// With the switchboard's lock held.
/// Closes the line if it is open. From here on the program hears nothing of it.
void beginEnd(Modem& modem);
/// Waits until the modem's thread has ended, if there is one. The lock is let go meanwhile.
void awaitEnd(std::unique_lock<std::mutex>& lock, Modem& modem);

} // namespace brisolt::service

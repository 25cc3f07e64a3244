#include "port/port_lock.h"

namespace brisolt {

thread_local char PortLock::thisThread = 0;

// A device write is worth a sleep.
void PortLock::awaitTurn(uint32_t ticket) noexcept {
    for (int32_t i = 0; i < looks; ++i)
        if (serving_.load() == ticket)
            return;
    for (uint32_t now = serving_.load(); now != ticket; now = serving_.load())
        parking::park(serving_, now, -1);
}

} // namespace brisolt

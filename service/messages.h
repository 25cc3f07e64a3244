// The way of a message to the program: it waits here until a thread of the program pumps.
#pragma once

#include <cstdint>
#include <memory>

#include "switchboard.h"

namespace brisolt::service {

// With the switchboard's lock held.
/// Makes the window that messages go through; false when the host has none.
bool openMessages();
/// Memory for all that there may be to tell about one more call: that it ends is told whatever happens.
void reserveMessages();
/// Once more, what the host had no room for. False: again a while later.
bool announceMessages() noexcept;
/// A message about a modem's call; nothing while it has none.
void postCallState(const std::shared_ptr<Modem>& modem, uint32_t state, uint32_t detail) noexcept;
void postReply(const std::shared_ptr<Modem>& modem, int32_t request, int32_t result) noexcept;
/// A message about its line, when the program wants to know that state.
void postLineState(const std::shared_ptr<Modem>& modem, uint32_t state, uint32_t p2, uint32_t p3) noexcept;

} // namespace brisolt::service

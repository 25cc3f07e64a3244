// What a child of the program must not keep: a fork copies every descriptor, and a device stays open, its lines
// raised and its lock held, as long as any copy is. A child that runs another program loses them by close-on-exec;
// one that goes on by itself loses them here. Its ports are dead.
#pragma once

#include <cstdint>

#include "platform/forked.h"

namespace brisolt::forked {

/// From now on a child closes the descriptor at once.
void closeInChild(int32_t descriptor) noexcept;
/// Before it is closed.
void forget(int32_t descriptor) noexcept;

} // namespace brisolt::forked

// A child of the program that goes on by itself. Its parent's threads are not there, its parent's ports are not its
// own, and any lock may have been held by a thread that is not there to give it back. What the library has of that
// kind begins anew in it, so that the child can open ports of its own.
#pragma once

namespace brisolt::forked {

/// From now on `begin` runs in every child before its fork returns. It takes no lock and allocates nothing: what it
/// drops is left to lie. Giving the same function again changes nothing.
void beginAnewInChild(void (*begin)()) noexcept;

} // namespace brisolt::forked

// Sounds of the host.
#pragma once

namespace brisolt::sound {

/// Rings the bell of the terminal that the program runs in. Silent without one.
void beep() noexcept;

/// Plays a sound file through what the host has for that, and returns when it is over. False when it cannot
/// be played.
bool play(const char* path) noexcept;

} // namespace brisolt::sound

// Sleeping on a word of memory until somebody changes it and says so: the cheapest hand-over between two
// threads, one call each.
#pragma once

#include <atomic>
#include <cstdint>

namespace brisolt::parking {

/// Sleeps while `word` is `value`, at most that long (real milliseconds, -1: no limit). May return early.
void park(const std::atomic<uint32_t>& word, uint32_t value, int32_t realMilliseconds) noexcept;
/// Wakes everybody who sleeps on the word.
void unparkAll(const std::atomic<uint32_t>& word) noexcept;

} // namespace brisolt::parking

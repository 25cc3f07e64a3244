// Appending, copying and moving files. What fails leaves both files as they were.
#pragma once

#include <cstdint>

namespace brisolt::copying {

inline constexpr int32_t done = 1;
inline constexpr int32_t noSource = -1; ///< or, for a copy, a destination in the way that cannot be deleted
inline constexpr int32_t noDestination = -2;
inline constexpr int32_t readFailed = -3;
inline constexpr int32_t writeFailed = -4;
inline constexpr int32_t sourceStays = -5;

int32_t append(const char* destination, const char* source);
int32_t copy(const char* destination, const char* source);
int32_t move(const char* destination, const char* source);

} // namespace brisolt::copying

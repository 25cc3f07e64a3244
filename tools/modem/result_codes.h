// What a modem answers, in words or in numbers, and what each X level lets it notice.
#pragma once

#include <string>
#include <string_view>

#include "s_registers.h"

namespace simulated {

enum class Result { ok, connect, ring, noCarrier, error, noDialtone, busy, noAnswer };

/// The X levels.
struct Level {
    bool tellsRate;     ///< CONNECT comes with the rate
    bool hearsDialtone; ///< waits for a dial tone before it dials
    bool hearsBusy;
};
const Level& levelOf(int x);
constexpr int highestLevel = 4;

/// Rates that have a number of their own, from the lowest up; any other connects at the next lower one.
int knownRate(int rate);

/// How answers are written: V and the characters of S3 and S4.
struct Writing {
    bool words;
    char end, lineFeed;
};
/// `rate` is that of a connection whose rate is told, else 0.
std::string resultText(Result result, int rate, const Writing& writing);
/// A line of information.
std::string informationText(std::string_view text, const Writing& writing);

} // namespace simulated

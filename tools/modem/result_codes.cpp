#include "result_codes.h"

#include <algorithm>
#include <iterator>

namespace simulated {

namespace {

struct Code {
    Result result;
    int number;
    std::string_view words;
};

constexpr Code codes[] = {
    {Result::ok, 0, "OK"},       {Result::connect, 1, "CONNECT"},
    {Result::ring, 2, "RING"},   {Result::noCarrier, 3, "NO CARRIER"},
    {Result::error, 4, "ERROR"}, {Result::noDialtone, 6, "NO DIALTONE"},
    {Result::busy, 7, "BUSY"},   {Result::noAnswer, 8, "NO ANSWER"},
};

struct Rate {
    int rate;
    int number;
};

constexpr Rate rates[] = {
    {300, 1},    {600, 9},    {1200, 5},   {2400, 10},  {4800, 11},  {7200, 13},   {9600, 12},
    {12000, 14}, {14400, 15}, {16800, 59}, {19200, 16}, {21600, 61}, {24000, 62},  {26400, 63},
    {28800, 64}, {31200, 91}, {33600, 84}, {38400, 17}, {57600, 18}, {115200, 19},
};

constexpr Level levels[highestLevel + 1] = {
    // rate, dial tone, busy
    {false, false, false}, {true, false, false}, {true, true, false}, {true, false, true}, {true, true, true},
};

const Rate& rateOf(int rate) {
    const auto above = std::upper_bound(std::begin(rates), std::end(rates), rate,
                                        [](int value, const Rate& entry) { return value < entry.rate; });
    return above == std::begin(rates) ? *above : *std::prev(above);
}

} // namespace

const Level& levelOf(int x) {
    return levels[std::clamp(x, 0, highestLevel)];
}

int knownRate(int rate) {
    return rateOf(rate).rate;
}

std::string resultText(Result result, int rate, const Writing& writing) {
    const Code& code = *std::find_if(std::begin(codes), std::end(codes),
                                     [result](const Code& entry) { return entry.result == result; });
    // 300 is what a plain CONNECT means.
    const bool withRate = rate > 300;
    if (!writing.words)
        return std::to_string(withRate ? rateOf(rate).number : code.number) + writing.end;
    std::string words(code.words);
    if (withRate)
        words += ' ' + std::to_string(knownRate(rate));
    return informationText(words, writing);
}

std::string informationText(std::string_view text, const Writing& writing) {
    const std::string lineEnd{writing.end, writing.lineFeed};
    return (writing.words ? lineEnd : "") + std::string(text) + lineEnd;
}

} // namespace simulated

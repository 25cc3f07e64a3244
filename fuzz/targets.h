// What is fed with odd inputs.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace brisolt::fuzz {

struct Target {
    const char* name;
    void (*feed)(std::string_view input); ///< ends the program when a promise does not hold
};
extern const std::vector<Target> targets;

inline void require(bool promise, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!promise)
        std::fprintf(stderr, "%s:%d does not hold\n", file, line), std::abort();
}

// far_ends.cpp
void modemAnswers(std::string_view input);
void networkPeer(std::string_view input);
void marks(std::string_view input);
void telephony(std::string_view input);

} // namespace brisolt::fuzz

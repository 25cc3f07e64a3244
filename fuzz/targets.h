// What is fed with odd inputs.
#pragma once

#include <string_view>
#include <vector>

namespace brisolt::fuzz {

struct Target {
    const char* name;
    void (*feed)(std::string_view input); ///< ends the program when a promise does not hold
};
extern const std::vector<Target> targets;

} // namespace brisolt::fuzz

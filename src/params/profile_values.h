// Values as profiles write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brisolt::profile {

enum class Encoding {
    boolean,   ///< 1 or 0; words are understood
    integer,   ///< decimal
    prefixed,  ///< 32 bits without a sign, the base told by a prefix; written in decimal
    character, ///< hexadecimal; several notations are understood
};

inline constexpr int32_t noBoolean = 65535; ///< a text that is neither yes nor no

/// The value of a text; without one, `absent` as it would read back once written.
int32_t decode(Encoding encoding, std::optional<std::string_view> text, int32_t absent);
std::string encode(Encoding encoding, int32_t value);

} // namespace brisolt::profile

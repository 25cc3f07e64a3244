// Names of files with a time stamp in them.
#pragma once

#include <string>
#include <string_view>

namespace brisolt {

inline constexpr std::size_t datedNameLimit = 260; ///< a name from here on is cut to it
inline constexpr std::size_t datedNameRoom = 400;  ///< a result, terminator included

struct DatedName {
    std::string text;
    bool complete; ///< else as much of it as its room takes
};
/// The name with the stamp before every dot.
DatedName datedName(std::string_view name, std::string_view stamp);

} // namespace brisolt

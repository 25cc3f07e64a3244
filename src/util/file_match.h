// Names and patterns with stars and question marks.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisolt {

/// Whether a directory search with the pattern finds the name: a star stands for any run of characters, a
/// question mark for any one, "*.*" for every name. Letter case counts, and a name that begins with a dot
/// is found only by a pattern that does, as everywhere on this host.
bool searchFinds(std::string_view pattern, std::string_view name) noexcept;

/// The test that takes no second look: after a star a text is taken where it stands first. 1 it matches, 0
/// it does not, -1 the pattern has too many segments.
int32_t checkFileMatch(std::string_view pattern, std::string_view name) noexcept;

} // namespace brisolt

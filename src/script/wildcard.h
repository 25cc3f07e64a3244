// Search for a pattern with wildcards in a zero-terminated text.
//
//     ?    any one byte            x*   any number of x, as many as there are, none included
//     ?*   what follows, further on in the text
//
// Everything else stands for itself; a * at the start, or behind ?*, too. It is a simple matcher that never
// goes back, and programs have come to rely on its ways, the reported position included.
#pragma once

#include <cstddef>
#include <optional>

namespace brisolt {

/// Where the pattern was found: the first place at which an attempt met a wildcard and failed, if there was
/// one before the match itself. Nothing for an empty text or pattern, nor for one with more than 150 ?*.
std::optional<std::size_t> wildSearch(const char* text, const char* pattern) noexcept;

} // namespace brisolt

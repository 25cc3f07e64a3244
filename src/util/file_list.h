// Lists of file names for callers: made from patterns, grown by more, freed by walking past their end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Seen from outside only as an address.
struct FileList {
    std::vector<std::string> names;
};

namespace brisolt::lists {

inline constexpr std::size_t longestName = 259; ///< callers' buffers hold a terminator beside it
inline constexpr std::size_t mostFound = 1001;  ///< names that one search adds

// A pattern stands for files: those found by its wildcards, or those that it names itself, a byte 255 before
// each.

/// Deletes the files of a pattern, however many, as far as they can be.
void removeFiles(std::string_view pattern);

/// The list with the pattern's files after its own (null: a new one), as many as there is memory for. Null
/// when it is no list any more.
FileList* add(FileList* list, std::string_view pattern);
/// 0 also for what is no list.
int32_t count(FileList* list) noexcept;
/// Copies a name. Beyond the last one frees the list and gives false.
bool get(FileList* list, int32_t index, char* buffer) noexcept;
bool free(FileList* list) noexcept;

} // namespace brisolt::lists

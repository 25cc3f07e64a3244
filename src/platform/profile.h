// Profile files: sections of keys and values that people write by hand, too. What is not changed stays byte
// for byte as it was.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace brisolt::profile {

/// What is to become of a key.
struct Change {
    std::string_view key;
    std::optional<std::string> value; ///< none: the key is removed
};

// ---- the file

/// The text of a profile as it is now; none when it cannot be read.
std::optional<std::string> read(const char* file);

/// Makes all changes of a section, or none. The file is replaced in one step, only when there is something
/// to change, and never while another thread or program is changing it. False: errorText() tells why.
bool write(const char* file, std::string_view section, std::span<const Change> changes);

// ---- the text of a file

/// The value of a key; none when the section has no such key.
std::optional<std::string_view> find(std::string_view text, std::string_view section, std::string_view key);

/// Whether a line can hold it, so that it is found again.
bool storable(std::string_view section, const Change& change) noexcept;

/// Makes a storable change.
void apply(std::string& text, std::string_view section, const Change& change);

bool sameWithoutCase(std::string_view a, std::string_view b) noexcept;

} // namespace brisolt::profile

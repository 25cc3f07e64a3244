// The serial devices that the host knows of.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace brisolt::serial {

struct ListedDevice {
    std::string path;
    std::string description;
    std::string driver;
    std::string entry; ///< where the kernel tells about it
};

/// All serial devices below a directory like /sys/class/tty, sorted by path; none at all when the host fails to tell,
/// and then the error text says why.
std::optional<std::vector<ListedDevice>> listBelow(const std::string& classDirectory);
/// Of the looks at the kernel's files since the last time: false when one failed, with a text for people.
bool looksWereWhole(const std::string& directory);
/// Less, with numbers inside the texts compared as numbers: ttyS2 before ttyS10.
bool naturallyLess(std::string_view a, std::string_view b);

} // namespace brisolt::serial

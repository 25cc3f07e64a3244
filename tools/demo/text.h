// The text that the demonstration carries.
#pragma once

#include <string>

/// The whole of a file; throws when it cannot be read.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

/// Real text of up to `limit` bytes, and where it was found.
struct Text {
    std::string bytes, source;
};
Text realText(std::size_t limit);

// A text over a line to a program that knows nothing of this library, and back.
#pragma once

#include <string>
#include <vector>

/// The far end is socat on the other side of a pseudo terminal: it stores what we send in a file, then sends
/// that file back. `text` is a file in `directory`; so are the copies, which are returned. Throws when it
/// does not work.
std::vector<std::string> carryOverSocat(const std::string& directory, const std::string& text);

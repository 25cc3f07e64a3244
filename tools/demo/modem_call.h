// A text over a call between two modems, and back.
#pragma once

#include <string>
#include <vector>

/// Two simulated modems, each with a port of ours at it: set up from the modem database, one dials, the other
/// answers, the text goes there and back, hang-up. `text` is a file in `directory`; so are the copies, which
/// are returned. Throws when anything does not work.
std::vector<std::string> carryOverCall(const std::string& directory, const std::string& text);

// What the command tells people.
#pragma once

#include <string>
#include <string_view>

/// The text as a terminal may be given it: whatever is no printable UTF-8 and no line feed becomes '?'. Names of
/// devices come from the devices themselves, and a control sequence in one must not reach the user's terminal.
std::string printable(std::string_view text);

/// A line on standard error, behind the command's name.
void complain(std::string_view text);

/// Returns `code` when all of standard output has gone out, else complains and returns the code for failure.
int afterOutput(int code);

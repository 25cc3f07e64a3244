// What the command tells people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The text as a terminal may be given it: whatever is no printable UTF-8 and no line feed becomes '?'. Names of
/// devices come from the devices themselves, and a control sequence in one must not reach the user's terminal.
std::string printable(std::string_view text);

/// A line on standard error, behind the command's name.
void complain(std::string_view text);

/// Returns `code` when all of standard output has gone out, else complains and returns the code for failure.
int afterOutput(int code);

/// Writes all of it, waiting for a reader that is slow. Throws Failure, in the name of `what`.
void writeAll(int descriptor, std::string_view bytes, const std::string& what);

/// Whether that stream is a terminal which may be given colours (NO_COLOR, TERM=dumb).
bool inColour(int descriptor);

/// The columns of the terminal there; 0 when it is none.
std::size_t columns(int descriptor);

/// A string of JSON, quotes included. What is no UTF-8 becomes '?'.
std::string jsonString(std::string_view text);

/// The time of day, "12:34:56.789".
std::string timeOfDay();

/// "1.2 MB" and its like; at most 999 of a unit.
std::string amount(double bytes);

// Reading and writing as the far end of a line does, on a descriptor that never waits by itself.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace brisolt::test {

/// Bytes that were taken before the time was over: all of them unless the other side holds us off.
std::size_t writeTo(int descriptor, std::string_view bytes, std::chrono::milliseconds limit);
/// Waits for `count` bytes; fewer when the time is over first.
std::string readFrom(int descriptor, std::size_t count,
                     std::chrono::milliseconds limit = std::chrono::seconds(20));
/// What comes until nothing has come for `quiet`.
std::string readToQuiet(int descriptor, std::chrono::milliseconds quiet);

} // namespace brisolt::test

// The 32-bit check over a file.
#pragma once

#include <cstdint>

namespace brisolt::checks {

/// Reads the file block by block, with a call of `betweenBlocks` before each, and stores the check once all
/// is read. The number of bytes; -1 the file cannot be opened, -2 no memory, -4 a read failed.
int32_t checkFile(const char* name, uint32_t& check, void (*betweenBlocks)());

} // namespace brisolt::checks

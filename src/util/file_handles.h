// Open files under numbers that callers can keep. A number is never 0 and comes back only after all others
// have been used, so that one kept too long reaches nobody else's file.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/file.h"

namespace brisolt::handles {

/// 0 when the file is null-like.
int32_t add(file::File file);
/// The file stays open while somebody has it, its close notwithstanding. Null for a number of no file.
std::shared_ptr<file::File> find(int32_t handle) noexcept;
/// False for a number of no file, and when the host reports that something written was lost.
bool close(int32_t handle) noexcept;

} // namespace brisolt::handles

// Open files under numbers that callers can keep. A number is never 0 and comes back only after all others
// have been used, so that one kept too long reaches nobody else's file.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/file.h"

namespace brisolt::handles {

/// Opens a file. 0 when it cannot be opened; when there is no memory to keep it, it has not been tried.
int32_t open(const char* path, const file::How& how);
/// The file stays open while somebody has it, its close notwithstanding. Null for a number of no file.
std::shared_ptr<file::File> find(int32_t handle) noexcept;
/// False when the host reports that something written was lost. A number of no file has lost nothing.
bool close(int32_t handle) noexcept;

} // namespace brisolt::handles

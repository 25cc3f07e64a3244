// The four blocks of an open port: record, work area, and the storage of the two rings.
#pragma once

#include <cstdint>

namespace brisolt {
struct Port;

namespace blocks {
/// Allocates record and work area alone, for a port without rings. Results as of allocate.
int32_t allocateRecords(Port& port) noexcept;
/// Allocates all four and ties the rings to the record. 0, or the code of the block that was not had; the
/// others are released then.
int32_t allocate(Port& port, uint32_t rxSize, uint32_t txSize) noexcept;
void release(Port& port) noexcept;
} // namespace blocks
} // namespace brisolt

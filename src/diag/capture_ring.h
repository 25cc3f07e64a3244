// The ring of a capture: the latest bytes, and what of them a save writes. All under the port's captureMutex,
// with a ring in the record.
#pragma once

#include <string>
#include <string_view>

#include "port/record.h"

namespace brisolt::captureRing {

void add(PortRecord& record, std::string_view bytes) noexcept;
/// Empties it. Bytes behind the first zero byte are left as they are.
void clear(PortRecord& record) noexcept;
/// Empties it of all but its latest bytes.
void keepLatest(PortRecord& record, uint64_t count) noexcept;
/// What a save writes, from the oldest byte on. Of a ring that was never filled to its end, these are the
/// bytes added; of one that goes round, the one at the write position is left out; of an empty one, all its
/// memory.
std::string contents(const PortRecord& record);

} // namespace brisolt::captureRing

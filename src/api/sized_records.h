// Records that begin with their own size, so that they can grow: the caller's may be older and smaller, or newer
// and larger than ours.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace brisolt {

/// The caller's record has all fields of the record's first form, of that many bytes.
template <class Record> bool holdsAll(const Record* record, std::size_t firstForm = sizeof(Record)) noexcept {
    return record != nullptr && record->size >= firstForm;
}

/// Fills in what the caller's record has room for. Its size stays as it is.
template <class Record> void fill(Record& record, const Record& answer) noexcept {
    uint32_t size = record.size;
    std::memcpy(&record, &answer, std::min<std::size_t>(size, sizeof answer));
    record.size = size;
}

} // namespace brisolt

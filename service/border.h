// What all exported functions share: no exception leaves them, and a record is filled as far as its buffer
// goes.
#pragma once

#include <cstdint>
#include <cstring>
#include <new>
#include <system_error>

#include "api/export.h"
#include "refusals.h"

namespace brisolt::service {

template <class Body> int32_t guarded(Body body) noexcept try {
    return body();
} catch (const std::bad_alloc&) {
    return result::outOfMemory;
} catch (const std::system_error&) { // no thread, no descriptor
    return result::resourceUnavailable;
} catch (...) {
    return result::operationFailed;
}

/// How much fits behind the fixed part of a caller's record: none of it, or all.
template <class Record> bool hasRoom(const void* record, uint32_t variableSize) {
    uint32_t total = 0;
    std::memcpy(&total, record, sizeof total);
    return total >= sizeof(Record) + variableSize;
}

/// Fills a caller's record, which may lie anywhere.
template <class Record>
int32_t fill(void* record, Record answer, const void* variable = nullptr, uint32_t variableSize = 0) {
    if (record == nullptr)
        return result::nullPointer;
    if (!hasRoom<Record>(record, 0))
        return result::recordTooSmall;
    const bool fits = hasRoom<Record>(record, variableSize);
    std::memcpy(&answer.sizes.total, record, sizeof answer.sizes.total);
    answer.sizes.needed = static_cast<uint32_t>(sizeof(Record) + variableSize);
    answer.sizes.used = fits ? answer.sizes.needed : static_cast<uint32_t>(sizeof(Record));
    std::memcpy(record, &answer, sizeof answer);
    if (fits && variableSize > 0)
        std::memcpy(static_cast<char*>(record) + sizeof answer, variable, variableSize);
    return result::success;
}

} // namespace brisolt::service

#include "diag/capture_ring.h"

#include <algorithm>
#include <cstring>

namespace brisolt::captureRing {
namespace {

std::string_view part(const PortRecord& record, int32_t from, int32_t to) noexcept {
    return {record.captureBuffer + from, static_cast<std::size_t>(to - from)};
}

/// The start stands in front of the write position only in a ring that goes round.
bool goesRound(const PortRecord& record) noexcept {
    return record.captureWritePos > 0 && record.captureStart >= record.captureWritePos;
}

} // namespace

void add(PortRecord& record, std::string_view bytes) noexcept {
    record.captureAdded += bytes.size();
    auto capacity = static_cast<std::size_t>(record.captureSize);
    if (bytes.size() > capacity)
        bytes.remove_prefix(bytes.size() - capacity);
    if (bytes.empty())
        return;
    int32_t position = record.captureWritePos;
    std::size_t toEnd = std::min(bytes.size(), capacity - static_cast<std::size_t>(position));
    std::size_t rest = bytes.size() - toEnd;
    std::memcpy(record.captureBuffer + position, bytes.data(), toEnd);
    std::memcpy(record.captureBuffer, bytes.data() + toEnd, rest);
    bool round = rest > 0 || goesRound(record);
    record.captureWritePos = rest > 0 ? static_cast<int32_t>(rest) : position + static_cast<int32_t>(toEnd);
    if (round)
        record.captureStart = record.captureWritePos < record.captureSize ? record.captureWritePos + 1 : 0;
}

void clear(PortRecord& record) noexcept {
    auto capacity = static_cast<std::size_t>(record.captureSize);
    record.captureStart = 0;
    record.captureWritePos = 0;
    std::memset(record.captureBuffer, 0, strnlen(record.captureBuffer, capacity));
}

// In place: what a save has written is written, whether there is memory or not.
void keepLatest(PortRecord& record, uint64_t count) noexcept {
    int32_t end = record.captureWritePos;
    int32_t most = goesRound(record) ? record.captureSize : end;
    auto kept = static_cast<int32_t>(std::min(count, static_cast<uint64_t>(most)));
    if (kept == 0)
        return clear(record);
    char* ring = record.captureBuffer;
    int32_t oldest = end >= kept ? end - kept : end - kept + record.captureSize;
    std::rotate(ring, ring + oldest, ring + record.captureSize);
    std::memset(ring + kept, 0, static_cast<std::size_t>(record.captureSize - kept));
    record.captureStart = 0;
    record.captureWritePos = kept;
}

std::string contents(const PortRecord& record) {
    if (record.captureStart < record.captureWritePos)
        return std::string(part(record, record.captureStart, record.captureWritePos));
    return std::string(part(record, record.captureStart, record.captureSize))
        .append(part(record, 0, record.captureWritePos));
}

} // namespace brisolt::captureRing
